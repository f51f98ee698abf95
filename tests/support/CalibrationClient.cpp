#include "support/CalibrationClient.h"

#include <grpcpp/grpcpp.h>

namespace {

using namespace std::chrono_literals;
using dio::endpoint::EndpointDevice;
using dio::endpoint::Void;

constexpr auto kPatience = 10s;

/// A connection of its own, that looks again often for a device that is not there yet.
std::shared_ptr<grpc::Channel> connect(const std::string& address) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 10);
    arguments.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 10'000);  // the time to connect
    arguments.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 10);
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    return grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments);
}

dio::endpoint::Index indexOf(int slot) {
    dio::endpoint::Index index;
    index.set_value(slot);
    return index;
}

template <typename Method, typename Request, typename Reply>
grpc::Status call(EndpointDevice::Stub& stub, Method method, const Request& request, Reply* reply) {
    grpc::ClientContext context;
    CalibrationClient::limit(&context);
    return (stub.*method)(&context, request, reply);
}

}  // namespace

CalibrationClient::CalibrationClient(const std::string& address)
    : stub_(EndpointDevice::NewStub(connect(address))) {
}

void CalibrationClient::limit(grpc::ClientContext* context) {
    context->set_deadline(std::chrono::system_clock::now() + kPatience);
}

bool CalibrationClient::answersBefore(std::chrono::system_clock::time_point deadline) {
    grpc::ClientContext context;
    context.set_deadline(deadline);
    context.set_wait_for_ready(true);
    dio::endpoint::DeviceInfo reply;
    return stub_->GetDeviceInfo(&context, Void(), &reply).ok();
}

grpc::Status CalibrationClient::transfer(const dio::endpoint::SlotInfo& slot,
                                         const FilterDesign& design) {
    grpc::Status status = begin(slot);
    for (const CellDesign& cell : design)
        if (status.ok())
            status = send(cell);
    return status.ok() ? end(slot.slot()) : status;
}

grpc::Status CalibrationClient::activate(int slot) {
    Void reply;
    return call(*stub_, &EndpointDevice::Stub::SetActiveSlot, indexOf(slot), &reply);
}

grpc::Status CalibrationClient::remove(int slot) {
    Void reply;
    return call(*stub_, &EndpointDevice::Stub::DeleteSlot, indexOf(slot), &reply);
}

grpc::Status CalibrationClient::slotInfo(int slot, dio::endpoint::SlotInfo* reply) {
    return call(*stub_, &EndpointDevice::Stub::GetSlotInfo, indexOf(slot), reply);
}

grpc::Status CalibrationClient::deviceInfo(dio::endpoint::DeviceInfo* reply) {
    return call(*stub_, &EndpointDevice::Stub::GetDeviceInfo, Void(), reply);
}

grpc::Status CalibrationClient::begin(const dio::endpoint::SlotInfo& slot) {
    Void reply;
    return call(*stub_, &EndpointDevice::Stub::BeginFilterTransfer, slot, &reply);
}

grpc::Status CalibrationClient::send(const CellDesign& design) {
    Void reply;
    grpc::Status status = call(*stub_, &EndpointDevice::Stub::SetTransferCell, design.cell, &reply);
    const auto sendAll = [&](auto method, const auto& messages) {
        for (const auto& message : messages)
            if (status.ok())
                status = call(*stub_, method, message, &reply);
    };
    sendAll(&EndpointDevice::Stub::SetCellFIIR, design.fiirs);
    sendAll(&EndpointDevice::Stub::SetCellIIR, design.iirs);
    sendAll(&EndpointDevice::Stub::SetCellDelayGain, design.delayGains);
    return status;
}

grpc::Status CalibrationClient::end(int slot) {
    grpc::ClientContext context;
    limit(&context);
    const auto reader = stub_->EndFilterTransfer(&context, indexOf(slot));
    dio::endpoint::Progress progress;
    while (reader->Read(&progress)) {
    }
    return reader->Finish();
}

dio::endpoint::SlotInfo makeSlot(int slot, const std::string& name, std::int64_t creationTime) {
    dio::endpoint::SlotInfo info;
    info.set_slot(slot);
    info.set_name(name);
    info.set_filter_type_name("Correction");
    info.set_description("Transferred by a test");
    info.set_creation_time(creationTime);
    return info;
}
