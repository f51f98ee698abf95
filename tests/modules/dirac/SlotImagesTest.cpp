#include "modules/dirac/SlotImages.h"

#include <gmock/gmock.h>

#include <cstring>

using testing::HasSubstr;
using testing::Optional;

namespace {

constexpr int kSlot = 3;

/// One channel that begins with these taps.
QVariantList design(const QVariantList& taps) {
    VeskDiracFiirParams fiir;
    fiir.setTaps(taps);
    fiir.setTapSize(taps.size());
    VeskDiracChannelParams channel;
    channel.setFiir(fiir);
    return {QVariant(QVariantList{channel})};
}

/// One section with one cell of this gain.
QVariantList bassControl(double gain) {
    VeskDiracBcCells cell;
    cell.setGain(gain);
    VeskDiracBcParams section;
    section.setType(1);
    section.setCells({cell});
    section.setNumCells(1);
    return {QVariant(QVariantList{section})};
}

VeskDiracSlot slotOf(const QVariantList& params, const QVariantList& bcParams = {}) {
    VeskDiracSlot slot;
    slot.setSlotIdx(kSlot);
    slot.setParams(params);
    slot.setBcParams(bcParams);
    return slot;
}

VeskDiracSlotsList listOf(const QVariantList& slotEntries) {
    VeskDiracSlotsList list;
    list.setSlots_(slotEntries);
    return list;
}

class SlotImagesTest : public testing::Test {
protected:
    std::unique_ptr<DiracConfiguration> filled(const VeskDiracSlot& slot) {
        auto configuration = std::make_unique<DiracConfiguration>();
        EXPECT_EQ(images.fill(slot, *configuration), std::nullopt);
        return configuration;
    }

    SlotImages images;
};

TEST_F(SlotImagesTest, secondImageOfASlotIsTheFirst) {
    const auto slot = slotOf(design({0.5, 0.25}), bassControl(-3));
    const auto first = filled(slot);
    EXPECT_EQ(first->groups[0][0].taps[1], 0.25F);
    EXPECT_EQ(first->bassControl[0][0].cells[0].gain, -3);
    EXPECT_EQ(first->bassControlPresent, 1U);
    EXPECT_EQ(std::memcmp(first.get(), filled(slot).get(), sizeof *first), 0);
}

TEST_F(SlotImagesTest, renamedSlotSharesItsDesign) {
    const auto params = design({0.5});
    auto slot = slotOf(params);
    filled(slot);
    slot.setName(QStringLiteral("Evening"));
    EXPECT_TRUE(slot.params().isSharedWith(params));
    EXPECT_EQ(filled(slot)->groups[0][0].taps[0], 0.5F);
}

TEST_F(SlotImagesTest, replacedDesignIsConvertedAnew) {
    filled(slotOf(design({0.5})));
    EXPECT_EQ(filled(slotOf(design({0.75})))->groups[0][0].taps[0], 0.75F);
}

TEST_F(SlotImagesTest, replacedBassControlIsConvertedAnew) {
    const auto params = design({0.5});
    filled(slotOf(params, bassControl(-3)));
    EXPECT_EQ(filled(slotOf(params, bassControl(-6)))->bassControl[0][0].cells[0].gain, -6);
    EXPECT_EQ(filled(slotOf(params))->bassControlPresent, 0U);
}

TEST_F(SlotImagesTest, everythingBesideTheFiltersStays) {
    const auto slot = slotOf(design({0.5}));
    filled(slot);
    DiracConfiguration configuration;
    configuration.timeStamp = 7;
    configuration.speakerCount = 2;
    configuration.bypass = 0;
    EXPECT_EQ(images.fill(slot, configuration), std::nullopt);
    EXPECT_EQ(configuration.timeStamp, 7);
    EXPECT_EQ(configuration.speakerCount, 2U);
    EXPECT_EQ(configuration.bypass, 0);
}

TEST_F(SlotImagesTest, slotThatIsTooLargeIsToldOfEachTime) {
    QVariantList tooMany;
    for (int i = 0; i < 1025; ++i)
        tooMany.append(1.0);
    const auto slot = slotOf(design(tooMany));
    for (int i = 0; i < 2; ++i) {
        DiracConfiguration configuration;
        EXPECT_THAT(images.fill(slot, configuration), Optional(HasSubstr("1025 taps")));
    }
}

TEST_F(SlotImagesTest, forgetsSlotsThatAreGone) {
    const auto params = design({0.5});
    const auto useCount = [&params] { return params.isDetached() ? "one" : "several"; };
    filled(slotOf(params));
    EXPECT_STREQ(useCount(), "several");
    images.retain(listOf({slotOf({})}));
    EXPECT_STREQ(useCount(), "several");
    images.retain(listOf({}));
    EXPECT_STREQ(useCount(), "one");
}

}  // namespace
