#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "modules/dirac/SectionTopology.h"

#include <exception>

namespace {

/// Runs an operation on a slot; what it throws becomes the answer.
template <typename Operation>
grpc::Status answerOf(const Operation& operation) {
    try {
        operation();
        return grpc::Status::OK;
    } catch (const std::exception& exception) {
        return {grpc::StatusCode::INVALID_ARGUMENT, exception.what()};
    }
}

}  // namespace

grpc::Status RpcHandler::GetActiveSlot(grpc::ServerContext*, const dio::endpoint::Void*,
                                       dio::endpoint::Index* response) {
    const SlotsLock lock = lockSlots();
    const int slot = filterManager_->getActiveSlot();
    DIRAC_SCOPED_TRACE("Active slot: " << slot);
    response->set_value(slot);
    activeSlot_ = slot;
    return grpc::Status::OK;
}

grpc::Status RpcHandler::SetActiveSlot(grpc::ServerContext*, const dio::endpoint::Index* request,
                                       dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Set new active slot: " << request->value());
    const SlotsLock lock = lockSlots();
    filterManager_->setActiveSlot(request->value());
    activeSlot_ = request->value();
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetSlotInfo(grpc::ServerContext*, const dio::endpoint::Index* request,
                                     dio::endpoint::SlotInfo* response) {
    const int index = request->value();
    DIRAC_SCOPED_TRACE("Index " << index);
    const SlotsLock lock = lockSlots();
    if (!isSlot(index))
        return invalidArgument("index out of range");
    const processing::FilterSlotInfo& info = filterManager_->getInfoForSlot(index);
    response->set_name(info.name);
    response->set_filter_type_name(info.filterTypeName);
    response->set_description(info.description);
    response->set_creation_time(info.creationTime);
    response->set_num_inputs(static_cast<std::uint32_t>(inputToSpeaker_.size()));
    response->set_num_speakers(static_cast<std::uint32_t>(serverInfo_->speakers.size()));
    response->set_num_sections(kNumberOfSections);
    return grpc::Status::OK;
}

grpc::Status RpcHandler::UpdateSlotInfo(grpc::ServerContext*,
                                        const dio::endpoint::SlotInfoUpdate* request,
                                        dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Slot " << request->slot());
    const SlotsLock lock = lockSlots();
    return answerOf([&] {
        filterManager_->updateSlot(request->slot(), request->name(), request->filter_type_name(),
                                   request->description());
    });
}

grpc::Status RpcHandler::DeleteSlot(grpc::ServerContext*, const dio::endpoint::Index* request,
                                    dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Slot " << request->value());
    const SlotsLock lock = lockSlots();
    return answerOf([&] { filterManager_->deleteSlot(request->value()); });
}

bool RpcHandler::isSlot(int index) const {
    return index >= 0 && index < filterManager_->getNumberOfAvailableSlots();
}
