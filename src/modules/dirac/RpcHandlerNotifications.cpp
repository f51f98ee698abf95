#include "modules/dirac/Dirac.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "sdk/player/PlayLogicInterface.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace {

constexpr std::chrono::milliseconds kPollPeriod{100};

/// A client may set a gain that is not a number; that is no change for ever.
bool differ(double a, double b) {
    return a != b && !(std::isnan(a) && std::isnan(b));
}

}  // namespace

grpc::Status RpcHandler::Notifications(
    grpc::ServerContext* context,
    grpc::ServerReaderWriter<dio::endpoint::NotificationInfo,
                             dio::endpoint::ClientNotificationInfo>* stream) {
    DIRAC_SCOPED_TRACE("");
    std::unique_lock<std::mutex> client(notificationClientMutex_, std::try_to_lock);
    if (!client) {
        LOG4CPLUS_INFO(logger, "Notifications: Client already connected!");
        return {grpc::StatusCode::RESOURCE_EXHAUSTED, "client already connected"};
    }
    if (!stream->Write(dio::endpoint::NotificationInfo()))
        return {grpc::StatusCode::UNKNOWN, "Notification write failed"};
    PlayLogicInterface::playerInstance()->stop(VeskPlayLogicStopReason::UserRequested);
    showClient(true);

    while (!shuttingDown_) {
        if (context->IsCancelled()) {
            client.unlock();
            LOG4CPLUS_INFO(logger, "Notifications: Client disconnected.");
            showClient(false);
            scopedTrace.leaveWith("RETURN: CANCELLED");
            return {grpc::StatusCode::CANCELLED, "cancelled"};
        }
        const dio::endpoint::NotificationInfo changes = takeChanges();
        if (changes.kinds_size() > 0)
            stream->Write(changes);
        std::this_thread::sleep_for(kPollPeriod);
    }
    scopedTrace.leaveWith("RETURN: OK");
    return grpc::Status::OK;
}

/// A client may connect while the one before it takes its leave, and must not be shown as gone.
void RpcHandler::showClient(bool connected) {
    const std::lock_guard<std::mutex> lock(clientStatusMutex_);
    connectedClients_ += connected ? 1 : -1;
    filterManager_->clientConnected(connected);
    if (!connected && connectedClients_ > 0)
        filterManager_->clientConnected(true);
}

/// What changed since it was last asked for. Under the lock, so that a client's own change of the
/// gain is never seen half done.
dio::endpoint::NotificationInfo RpcHandler::takeChanges() {
    const SlotsLock lock = lockSlots();
    dio::endpoint::NotificationInfo changes;
    const double speakerGain = worker_->getAttenuation();
    if (differ(notifiedSpeakerGain_.exchange(speakerGain), speakerGain)) {
        changes.add_kinds(dio::endpoint::NOTIFICATION_KIND_SPEAKER_GAIN_CHANGED);
        LOG4CPLUS_DEBUG(logger, "Notifications: Speaker gain changed");
    }
    const bool filterState = worker_->getFilteringEnabled();
    if (notifiedFilterState_.exchange(filterState) != filterState) {
        changes.add_kinds(dio::endpoint::NOTIFICATION_KIND_FILTER_STATE_CHANGED);
        LOG4CPLUS_DEBUG(logger, "Notification: Filter state changed");
    }
    const int activeSlot = filterManager_->getActiveSlot();
    if (lastNotifiedSlot_.exchange(activeSlot) != activeSlot) {
        changes.add_kinds(dio::endpoint::NOTIFICATION_KIND_ACTIVE_FILTER_CHANGED);
        LOG4CPLUS_DEBUG(logger, "Notification: Active filter changed");
    }
    return changes;
}

/// The handler's own notion of the active slot stays, so a connected stream reports the change.
void RpcHandler::notifyActiveSlot(int slot) {
    DIRAC_SCOPED_TRACE(slot);
    const SlotsLock lock = lockSlots();
    filterManager_->setActiveSlot(slot);
}
