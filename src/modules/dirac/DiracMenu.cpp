#include "modules/dirac/Dirac.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/services/CryptoHash.h"

#include <QUuid>

#include <algorithm>

namespace {

constexpr int kChoiceFromList = 1;  // edit type
constexpr int kChoiceRow = 101;     // row type

bool isCastActive() {
    return VeskValue(CMRoot()->getValue(VeskTalvorCastActivePath())).bool_();
}

}  // namespace

int Dirac::activeSlotOf(const VeskDiracSlotsList& list) {
    return list.contains(VeskDiracSlotsList::ActiveSlot()) ? list.activeSlot() : kNoSlot;
}

bool Dirac::slotPopulated(const VeskDiracSlotsList& list, int index) {
    const QVariantList all = list.slots_();
    return std::any_of(all.begin(), all.end(), [index](const QVariant& slot) {
        return VeskDiracSlot(slot).slotIdx() == index;
    });
}

QString Dirac::generateUuid5(const QString& namespaceText, const QString& name) {
    DIRAC_SCOPED_TRACE();
    CryptoHash hash(CryptoHash::Sha1);
    hash.update(QUuid(namespaceText).toRfc4122() + name.toUtf8());
    QByteArray bytes;
    hash.finalize(&bytes);
    bytes.truncate(16);
    bytes[6] = static_cast<char>((bytes[6] & 0x0F) | 0x50);  // version 5
    bytes[8] = static_cast<char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return QUuid::fromRfc4122(bytes).toString(QUuid::WithoutBraces);
}

void Dirac::initUIMenuNode() {
    DIRAC_SCOPED_TRACE();
    filterSettingsNode = CMListRowsNode::create(nodes(), VeskDiracFilterSettingsPath());
    activeFilterNode = CMValueNode::create(nodes(), VeskDiracActiveFilterPath());
    activeFilterNode->setTitle(
        TrString(trExtractContext(__PRETTY_FUNCTION__), QStringLiteral("Dirac")));
    VeskEdit edit;
    edit.setType(kChoiceFromList);
    edit.setEnumPath(filterSettingsNode->path());
    activeFilterNode->setEdit(edit);
    activeFilterNode->doSetValidate(
        [this](const CMSetDataRequest& request) { validateActiveFilter(request); });
}

void Dirac::validateActiveFilter(const CMSetDataRequest& request) {
    const VeskDiracSlotsList list = slotsSettingsItem->value().diracSlotsList();
    if (isCastActive()) {
        LOG4CPLUS_WARN(logger, "Attempt to set filter slot during Google cast playback.");
        request.reply().setError(CMError(QStringLiteral("Unable to set during Cast session")));
        return;
    }
    const int idx = request.value().i32_();
    const bool isIndex = request.value().contains(VeskValue::I32());
    if (!isIndex || (idx != kNoSlot && !slotPopulated(list, idx))) {
        LOG4CPLUS_WARN(logger,
                       "Attempt to set filter slot that is not populated! Ignoring request.");
        request.reply().setError(CMError(QStringLiteral("Invalid filter ID")));
        return;
    }
    selectInMenu(idx, MenuOrigin::User);
    // Chosen back while another value was on its way to the menu: nothing will be reported.
    if (!menuChange && activeSlotOf(storedSlots()) != idx)
        on_activeFilter_changed(VeskValue::ofI32(idx));
    request.reply().setValue(true);
}

/// Sets the selection and remembers who did, until on_activeFilter_changed() is told of it.
void Dirac::selectInMenu(int slotIdx, MenuOrigin origin) {
    const VeskValue value = VeskValue::ofI32(slotIdx);
    menuChange.reset();
    if (value != activeFilterItem->value())
        menuChange = {origin, slotIdx};
    activeFilterNode->setValue(value);
}

/// May also be called with a value that the menu has not been given; then the menu's own change is
/// still to come.
void Dirac::on_activeFilter_changed(const VeskValue& value) {
    DIRAC_SCOPED_TRACE();
    const int idx = value.i32_();
    auto origin = MenuOrigin::Elsewhere;
    std::optional<int> heldBack;
    if (!menuChange || menuChange->slotIdx == idx) {
        origin = menuChange ? menuChange->origin : origin;
        menuChange.reset();
        heldBack.swap(heldBackSelection);
    }
    if (isCastActive()) {
        LOG4CPLUS_WARN(logger, "Attempt to set filter slot during Google cast playback.");
        if (heldBack)
            selectInMenu(*heldBack, MenuOrigin::Settings);
        return;
    }
    LOG4CPLUS_INFO(logger, "Active filter changed to " << idx);
    activateFilter(idx, origin);
}

/// Writes the menu's selection into the settings.
///
/// The settings are read fresh, and no client's call changes them meanwhile: the item may be behind
/// a slot that a client has just stored, and writing the older list back would lose it. For the
/// same reason a selection that only follows the settings gives way to a slot that a client has
/// chosen since.
void Dirac::activateFilter(int idx, MenuOrigin origin) {
    const auto lock = rpcHandler ? rpcHandler->lockSlots() : RpcHandler::SlotsLock();
    VeskDiracSlotsList list = storedSlots();
    const bool isOutdated =
        origin == MenuOrigin::Settings &&
        activeSlotOf(list) != activeSlotOf(slotsSettingsItem->value().diracSlotsList());
    const int active = isOutdated ? activeSlotOf(list) : idx;

    activeFilterIdx = idx;
    list.setActiveSlot(active);
    if (rpcHandler)
        rpcHandler->notifyActiveSlot(active);
    list.setFilteringEnabled(slotPopulated(list, active));
    CMRoot()->setValue(VeskDiracSlotsSettingsPath(), VeskValue::of(list), {});
}

void Dirac::on_slotsSettings_changes(const VeskValue& value) {
    LOG4CPLUS_DEBUG(logger, "Enter " << dbglog_scopedFunction(__PRETTY_FUNCTION__, "Dirac")
                                     << ": Slots settings changed");
    VeskValue copy = value;
    VeskDiracSlotsList list = copy.diracSlotsList();
    const QVariantList all = list.slots_();
    const int active = activeSlotOf(list);
    // The active slot may have been deleted.
    if (active != kNoSlot && !slotPopulated(list, active) && !all.isEmpty()) {
        list.setActiveSlot(VeskDiracSlot(all.last()).slotIdx());
        copy.setDiracSlotsList(list);
    }
    writeRuntime(copy);
    CMRoot()->setValue(VeskTalvorCorbelDiracSlotsUpdatePath(), VeskValue::ofI32(all.size()), {});
    updateUiMenuNode(list);
}

/// While a stimulus plays both stages stay off, whatever the settings have become. Under the lock,
/// so that the bypass either is seen here or comes after this write.
void Dirac::writeRuntime(VeskValue settings) {
    const auto lock = rpcHandler ? rpcHandler->lockSlots() : RpcHandler::SlotsLock();
    if (rpcHandler && rpcHandler->isFilterBypassed()) {
        VeskDiracSlotsList bypassed = settings.diracSlotsList();
        bypassed.setDelayGainEnabled(false);
        bypassed.setFilteringEnabled(false);
        settings.setDiracSlotsList(bypassed);
    }
    CMRoot()->setValue(VeskDiracSlotsRuntimePath(), settings, {});
}

void Dirac::updateUiMenuNode(const VeskDiracSlotsList& list) {
    DIRAC_SCOPED_TRACE();
    const QString context = trExtractContext(__PRETTY_FUNCTION__);
    filterSettingsNode->rowsClear();
    appendMenuRow(TrString(context, QStringLiteral("off")), kNoSlot);
    const QVariantList all = list.slots_();
    for (const QVariant& entry : all) {
        const VeskDiracSlot slot(entry);
        appendMenuRow(TrString(context, QStringLiteral("Filter: %1"), {TrArg(slot.name())}),
                      slot.slotIdx());
    }
    const int active = activeSlotOf(list);
    LOG4CPLUS_DEBUG(logger, "updateUiMenuNode: activeSlot: " << active);
    // A choice of the user's that is still on its way to the settings comes back from there.
    if (menuChange && menuChange->origin == MenuOrigin::User) {
        heldBackSelection = active;
        return;
    }
    heldBackSelection.reset();
    selectInMenu(active, MenuOrigin::Settings);
}

void Dirac::appendMenuRow(const TrString& title, int slotIdx) {
    VeskRoles row;
    row.setTitle(title);
    row.setValue(VeskValue::ofI32(slotIdx));
    row.setType(kChoiceRow);
    filterSettingsNode->rowsAppend(row);
}
