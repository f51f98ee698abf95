#include "calibrate/EndpointClient.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <endpoint.grpc.pb.h>
#include <grpcpp/grpcpp.h>

#include <algorithm>
#include <string>
#include <utility>

namespace calibrate {
namespace {

using Stub = protocol::EndpointDevice::Stub;

std::shared_ptr<grpc::Channel> openChannel(const DeviceAddress& address) {
    grpc::ChannelArguments arguments;
    // A device is on the local network; a proxy for the web would not find it.
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    return grpc::CreateCustomChannel("dns:///" + address.text(), grpc::InsecureChannelCredentials(),
                                     arguments);
}

DeviceError::Reason reasonOf(grpc::StatusCode code) {
    switch (code) {
        case grpc::StatusCode::UNAVAILABLE:
            return DeviceError::Reason::unreachable;
        case grpc::StatusCode::DEADLINE_EXCEEDED:
            return DeviceError::Reason::timeout;
        case grpc::StatusCode::UNIMPLEMENTED:
            return DeviceError::Reason::notOffered;
        case grpc::StatusCode::INVALID_ARGUMENT:
        case grpc::StatusCode::OUT_OF_RANGE:
        case grpc::StatusCode::NOT_FOUND:
            return DeviceError::Reason::rejected;
        default:
            return DeviceError::Reason::failed;
    }
}

/// The part of a connection error that people understand: "Connection refused".
std::string innermost(const std::string& text) {
    const auto colon = text.rfind(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

std::string secondsText(std::chrono::milliseconds time) {
    const auto count = static_cast<double>(time.count()) / 1000;
    return fixed(count, time.count() % 1000 == 0 ? 0 : 1) + " s";
}

protocol::Index indexOf(int value) {
    protocol::Index index;
    index.set_value(value);
    return index;
}

protocol::Variant variantOf(int id) {
    protocol::Variant variant;
    variant.set_id(id);
    return variant;
}

}  // namespace

/// The channel, and the one way in which a call is made.
class EndpointClient::Connection {
public:
    Connection(const DeviceAddress& address, std::chrono::milliseconds timeout,
               std::stop_token stop)
        : address_(address.text()),
          timeout_(timeout),
          stop_(std::move(stop)),
          stub_(protocol::EndpointDevice::NewStub(openChannel(address))) {}

    template <class Request, class Reply>
    Reply call(const char* name,
               grpc::Status (Stub::*method)(grpc::ClientContext*, const Request&, Reply*),
               const Request& request) {
        Reply reply;
        perform(name, timeout_, [&](grpc::ClientContext& context) {
            return (stub_.get()->*method)(&context, request, &reply);
        });
        return reply;
    }

    void endFilterTransfer(int slot, const std::function<void(double)>& progress) {
        const auto timeout = timeout_ * kStoreFactor;
        perform("EndFilterTransfer", timeout, [&](grpc::ClientContext& context) {
            const auto stream = stub_->EndFilterTransfer(&context, indexOf(slot));
            protocol::Progress message;
            while (stream->Read(&message))
                progress(static_cast<double>(message.value()));
            return stream->Finish();
        });
    }

private:
    template <class Function>
    void perform(const char* name, std::chrono::milliseconds timeout, Function&& function) {
        if (stop_.stop_requested())
            throw Interrupted("interrupted");
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + timeout);
        const grpc::Status status = [&] {
            const std::stop_callback cancel(stop_, [&] { context.TryCancel(); });
            return function(context);
        }();
        if (!status.ok())
            fail(name, status, timeout);
        connected_ = true;
    }

    [[noreturn]] void fail(const char* name, const grpc::Status& status,
                           std::chrono::milliseconds timeout) const {
        if (stop_.stop_requested())
            throw Interrupted("interrupted");
        const auto reason = reasonOf(status.error_code());
        throw DeviceError(reason, explain(reason, name, status, timeout));
    }

    std::string explain(DeviceError::Reason reason, const std::string& name,
                        const grpc::Status& status, std::chrono::milliseconds timeout) const {
        const std::string text = printable(status.error_message());
        switch (reason) {
            case DeviceError::Reason::unreachable:
                return connected_ ? name + ": the connection to " + address_ + " broke (" +
                                        innermost(text) + ")"
                                  : "no device answers at " + address_ + " (" + innermost(text) +
                                        "): check the address, and that the device is on";
            case DeviceError::Reason::timeout:
                return name + ": the device at " + address_ + " did not answer within " +
                       secondsText(timeout) + ": check the address, or give --timeout more";
            case DeviceError::Reason::notOffered:
                // A server without this method offers none of the others either.
                return name == "GetDeviceInfo"
                           ? "what listens at " + address_ +
                                 " is no calibration endpoint: check the port"
                           : name + ": the device at " + address_ + " does not offer this";
            default:
                return name + ": the device says: " + (text.empty() ? "no reason" : text);
        }
    }

    const std::string address_;
    const std::chrono::milliseconds timeout_;
    const std::stop_token stop_;
    const std::unique_ptr<Stub> stub_;
    bool connected_{false};  // whether the device has answered a call
};

EndpointClient::EndpointClient(const DeviceAddress& address, std::chrono::milliseconds timeout,
                               std::stop_token stop)
    : connection_(std::make_unique<Connection>(address, timeout, std::move(stop))) {
}

EndpointClient::~EndpointClient() = default;

protocol::DeviceInfo EndpointClient::deviceInfo() {
    return connection_->call("GetDeviceInfo", &Stub::GetDeviceInfo, protocol::Void());
}

protocol::MicInfo EndpointClient::micInfo(int microphone) {
    return connection_->call("GetMicInfo", &Stub::GetMicInfo, indexOf(microphone));
}

protocol::SpeakerInfo EndpointClient::speakerInfo(int speaker) {
    return connection_->call("GetSpeakerInfo", &Stub::GetSpeakerInfo, indexOf(speaker));
}

protocol::StimuliInfo EndpointClient::stimuliInfo() {
    return connection_->call("GetStimuliInfo", &Stub::GetStimuliInfo, protocol::Void());
}

protocol::PinkNoiseInfo EndpointClient::pinkNoiseInfo(int variant) {
    return connection_->call("GetPinkNoiseInfo", &Stub::GetPinkNoiseInfo, variantOf(variant));
}

protocol::LogSweepInfo EndpointClient::logSweepInfo(int variant) {
    return connection_->call("GetLogSweepInfo", &Stub::GetLogSweepInfo, variantOf(variant));
}

protocol::SectionInfo EndpointClient::sectionInfo(int section) {
    return connection_->call("GetSectionInfo", &Stub::GetSectionInfo, indexOf(section));
}

protocol::CellInfo EndpointClient::cellInfo(const protocol::CellIndex& cell) {
    return connection_->call("GetCellInfo", &Stub::GetCellInfo, cell);
}

protocol::IIRInfo EndpointClient::iirInfo(int variant) {
    return connection_->call("GetIIRInfo", &Stub::GetIIRInfo, variantOf(variant));
}

protocol::FIIRInfo EndpointClient::fiirInfo(int variant) {
    return connection_->call("GetFIIRInfo", &Stub::GetFIIRInfo, variantOf(variant));
}

protocol::DelayGainInfo EndpointClient::delayGainInfo(int variant) {
    return connection_->call("GetDelayGainInfo", &Stub::GetDelayGainInfo, variantOf(variant));
}

protocol::StreamingInfo EndpointClient::streamingInfo() {
    return connection_->call("GetStreamingInfo", &Stub::GetStreamingInfo, protocol::Void());
}

protocol::GainInfo EndpointClient::speakerGainInfo() {
    return connection_->call("GetSpeakerGainInfo", &Stub::GetSpeakerGainInfo, protocol::Void());
}

protocol::GainInfo EndpointClient::micGainInfo() {
    return connection_->call("GetMicGainInfo", &Stub::GetMicGainInfo, protocol::Void());
}

protocol::GainInfo EndpointClient::stimuliGainInfo() {
    return connection_->call("GetStimuliGainInfo", &Stub::GetStimuliGainInfo, protocol::Void());
}

protocol::OperationMode EndpointClient::operationMode() {
    return connection_->call("GetOperationMode", &Stub::GetOperationMode, protocol::Void());
}

void EndpointClient::setOperationMode(const protocol::OperationMode& mode) {
    connection_->call("SetOperationMode", &Stub::SetOperationMode, mode);
}

protocol::SlotInfo EndpointClient::slotInfo(int slot) {
    return connection_->call("GetSlotInfo", &Stub::GetSlotInfo, indexOf(slot));
}

int EndpointClient::activeSlot() {
    return connection_->call("GetActiveSlot", &Stub::GetActiveSlot, protocol::Void()).value();
}

void EndpointClient::setActiveSlot(int slot) {
    connection_->call("SetActiveSlot", &Stub::SetActiveSlot, indexOf(slot));
}

void EndpointClient::updateSlotInfo(const protocol::SlotInfoUpdate& update) {
    connection_->call("UpdateSlotInfo", &Stub::UpdateSlotInfo, update);
}

void EndpointClient::deleteSlot(int slot) {
    connection_->call("DeleteSlot", &Stub::DeleteSlot, indexOf(slot));
}

void EndpointClient::beginFilterTransfer(const protocol::SlotInfo& slot) {
    connection_->call("BeginFilterTransfer", &Stub::BeginFilterTransfer, slot);
}

void EndpointClient::setTransferCell(const protocol::CellIndex& cell) {
    connection_->call("SetTransferCell", &Stub::SetTransferCell, cell);
}

void EndpointClient::setCellFiir(const protocol::FIIR& filter) {
    connection_->call("SetCellFIIR", &Stub::SetCellFIIR, filter);
}

void EndpointClient::endFilterTransfer(int slot, const std::function<void(double)>& progress) {
    connection_->endFilterTransfer(slot, progress);
}

}  // namespace calibrate
