#include "calibrate/EndpointClient.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <endpoint.grpc.pb.h>
#include <grpcpp/grpcpp.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <type_traits>
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
        case grpc::StatusCode::RESOURCE_EXHAUSTED:
            return DeviceError::Reason::occupied;
        case grpc::StatusCode::INVALID_ARGUMENT:
        case grpc::StatusCode::OUT_OF_RANGE:
        case grpc::StatusCode::NOT_FOUND:
            return DeviceError::Reason::rejected;
        default:
            return DeviceError::Reason::failed;
    }
}

/// Whether the call failed here, because the device sent a message beyond every bound.
bool isTooLarge(const grpc::Status& status) {
    return status.error_code() == grpc::StatusCode::RESOURCE_EXHAUSTED &&
           status.error_message().find("message larger than max") != std::string::npos;
}

/// The part of a connection error that people understand: "Connection refused".
std::string innermost(const std::string& text) {
    const auto colon = text.rfind(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

protocol::Index indexOf(int value) {
    protocol::Index index;
    index.set_value(value);
    return index;
}

protocol::Gain gainOf(double decibels) {
    protocol::Gain gain;
    gain.set_gain(decibels);
    return gain;
}

protocol::StimuliStart startAt(std::uint64_t time) {
    protocol::StimuliStart start;
    start.set_start_time(time);
    return start;
}

protocol::Variant variantOf(int id) {
    protocol::Variant variant;
    variant.set_id(id);
    return variant;
}

}  // namespace

/// The channel, and the two ways in which a call is made.
class EndpointClient::Connection {
public:
    Connection(const DeviceAddress& address, std::chrono::milliseconds timeout,
               std::stop_token stop)
        : address_(address.text()),
          timeout_(timeout),
          stop_(std::move(stop)),
          stub_(protocol::EndpointDevice::NewStub(openChannel(address))) {}

    void heedStop() const {
        if (stopRequested())
            throw Interrupted("interrupted");
    }

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

    /// A stream that is being opened by `open`, a function of the context, the queue and the tag.
    template <class Message, class Open>
    std::unique_ptr<EndpointStream<Message>> openStream(const char* name, Open open) {
        heedStop();
        return std::make_unique<Stream<Message, Open>>(name, *this, open);
    }

    void uninterrupted(const std::function<void()>& calls) {
        const bool before = std::exchange(heedsStop_, false);
        const auto restore = [&](void*) { heedsStop_ = before; };
        const std::unique_ptr<void, decltype(restore)> atEnd(this, restore);
        calls();
    }

    Stub& stub() const { return *stub_; }
    std::chrono::milliseconds timeout() const { return timeout_; }

private:
    template <class Message, class Open>
    class Stream;

    bool stopRequested() const { return heedsStop_ && stop_.stop_requested(); }

    /// The token that ends a call; one that never asks for it in `uninterrupted`.
    std::stop_token stopOfCalls() const { return heedsStop_ ? stop_ : std::stop_token(); }

    template <class Function>
    void perform(const char* name, std::chrono::milliseconds timeout, Function&& function) {
        heedStop();
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + timeout);
        const grpc::Status status = [&] {
            const std::stop_callback cancel(stopOfCalls(), [&] { context.TryCancel(); });
            return function(context);
        }();
        if (!status.ok())
            fail(name, status, timeout);
        connected_ = true;
    }

    [[noreturn]] void fail(const char* name, const grpc::Status& status,
                           std::chrono::milliseconds timeout) const {
        heedStop();
        const auto reason =
            isTooLarge(status) ? DeviceError::Reason::failed : reasonOf(status.error_code());
        throw DeviceError(reason, explain(reason, name, status, timeout));
    }

    std::string explain(DeviceError::Reason reason, const std::string& name,
                        const grpc::Status& status, std::chrono::milliseconds timeout) const {
        const std::string text = printable(status.error_message());
        if (isTooLarge(status))
            return name + ": the device sent a message that is too large (" + text + ")";
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
    bool heedsStop_{true};
    std::atomic<bool> connected_{false};  // whether the device has answered a call
};

/// One operation at a time is under way on the call: its opening, a read or its end. A read that
/// nobody waited for long enough stays under way.
template <class Message, class Open>
class EndpointClient::Connection::Stream final : public EndpointStream<Message> {
public:
    using Event = typename EndpointStream<Message>::Event;

    Stream(const char* name, Connection& connection, const Open& open)
        : name_(name),
          connection_(connection),
          call_(open(connection.stub(), &context_, &queue_)),
          cancel_(connection.stopOfCalls(), Cancel{&context_}) {}

    ~Stream() override {
        context_.TryCancel();
        while (step_ != Step::ended) {
            if (step_ == Step::idle)
                finish();
            advance(*nextResult(gpr_inf_future(GPR_CLOCK_MONOTONIC)));
        }
        queue_.Shutdown();
        void* tag = nullptr;
        bool ok = false;
        while (queue_.Next(&tag, &ok)) {
        }
    }

    Event read(Message& message, std::chrono::milliseconds patience) override {
        const auto deadline = gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC),
                                           gpr_time_from_millis(patience.count(), GPR_TIMESPAN));
        while (step_ != Step::ended) {
            if (step_ == Step::idle)
                startRead();
            const auto ok = nextResult(deadline);
            if (!ok)
                return Event::silence;
            if (advance(*ok)) {
                message.Swap(&message_);
                return Event::message;
            }
        }
        if (!status_.ok())
            connection_.fail(name_, status_, connection_.timeout());
        return Event::end;
    }

private:
    enum class Step { opening, idle, reading, finishing, ended };

    struct Cancel {
        grpc::ClientContext* context;
        void operator()() const { context->TryCancel(); }
    };

    /// How the operation under way went; nothing when it is not done at the deadline.
    std::optional<bool> nextResult(gpr_timespec deadline) {
        void* tag = nullptr;
        bool ok = false;
        const auto status = queue_.AsyncNext(&tag, &ok, deadline);
        return status == grpc::CompletionQueue::GOT_EVENT ? std::optional(ok) : std::nullopt;
    }

    /// Goes on from the operation that is done. True: a message was read.
    bool advance(bool ok) {
        const Step done = step_;
        step_ = done == Step::finishing ? Step::ended : Step::idle;
        if (done == Step::reading && ok)
            connection_.connected_ = true;
        if (done != Step::finishing && !ok)
            finish();
        return done == Step::reading && ok;
    }

    void startRead() {
        step_ = Step::reading;
        call_->Read(&message_, this);
    }

    void finish() {
        step_ = Step::finishing;
        call_->Finish(&status_, this);
    }

    const char* const name_;
    Connection& connection_;
    grpc::ClientContext context_;
    grpc::CompletionQueue queue_;
    Message message_;
    grpc::Status status_;
    Step step_{Step::opening};
    // Behind what its operations fill.
    const std::invoke_result_t<Open, Stub&, grpc::ClientContext*, grpc::CompletionQueue*> call_;
    const std::stop_callback<Cancel> cancel_;
};

EndpointClient::EndpointClient(const DeviceAddress& address, std::chrono::milliseconds timeout,
                               std::stop_token stop)
    : connection_(std::make_unique<Connection>(address, timeout, std::move(stop))) {
}

EndpointClient::~EndpointClient() = default;

std::chrono::milliseconds EndpointClient::timeout() const {
    return connection_->timeout();
}

void EndpointClient::uninterrupted(const std::function<void()>& calls) {
    connection_->uninterrupted(calls);
}

void EndpointClient::heedStop() const {
    connection_->heedStop();
}

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

double EndpointClient::speakerGain() {
    return connection_->call("GetSpeakerGain", &Stub::GetSpeakerGain, protocol::Void()).gain();
}

void EndpointClient::setSpeakerGain(double gain) {
    connection_->call("SetSpeakerGain", &Stub::SetSpeakerGain, gainOf(gain));
}

double EndpointClient::micGain() {
    return connection_->call("GetMicGain", &Stub::GetMicGain, protocol::Void()).gain();
}

void EndpointClient::setMicGain(double gain) {
    connection_->call("SetMicGain", &Stub::SetMicGain, gainOf(gain));
}

double EndpointClient::stimuliGain(int speaker) {
    return connection_->call("GetStimuliGain", &Stub::GetStimuliGain, indexOf(speaker)).gain();
}

void EndpointClient::setStimuliGain(int speaker, double gain) {
    protocol::StimuliGain request;
    request.set_channel(speaker);
    request.set_gain(gain);
    connection_->call("SetStimuliGain", &Stub::SetStimuliGain, request);
}

protocol::OperationMode EndpointClient::operationMode() {
    return connection_->call("GetOperationMode", &Stub::GetOperationMode, protocol::Void());
}

void EndpointClient::setOperationMode(const protocol::OperationMode& mode) {
    connection_->call("SetOperationMode", &Stub::SetOperationMode, mode);
}

void EndpointClient::prepareStimuli(const protocol::StimuliPrepare& stimuli) {
    connection_->call("PrepareStimuli", &Stub::PrepareStimuli, stimuli);
}

std::unique_ptr<EndpointStream<protocol::Progress>> EndpointClient::startStimuli(
    std::uint64_t startTime) {
    return connection_->openStream<protocol::Progress>(
        "StartStimuli", [request = startAt(startTime)](auto& stub, auto* context, auto* queue) {
            return stub.AsyncStartStimuli(context, request, queue, nullptr);
        });
}

std::unique_ptr<EndpointStream<protocol::AudioBuffers>> EndpointClient::startRecordingStimuli(
    std::uint64_t startTime) {
    return connection_->openStream<protocol::AudioBuffers>(
        "StartRecordingStimuli",
        [request = startAt(startTime)](auto& stub, auto* context, auto* queue) {
            return stub.AsyncStartRecordingStimuli(context, request, queue, nullptr);
        });
}

std::unique_ptr<EndpointStream<protocol::AudioBuffers>> EndpointClient::startStreaming() {
    return connection_->openStream<protocol::AudioBuffers>(
        "StartStreaming", [](auto& stub, auto* context, auto* queue) {
            return stub.AsyncStartStreaming(context, queue, nullptr);
        });
}

std::unique_ptr<EndpointStream<protocol::NotificationInfo>> EndpointClient::notifications() {
    return connection_->openStream<protocol::NotificationInfo>(
        "Notifications", [](auto& stub, auto* context, auto* queue) {
            return stub.AsyncNotifications(context, queue, nullptr);
        });
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

void EndpointClient::setCellIir(const protocol::IIR& filter) {
    connection_->call("SetCellIIR", &Stub::SetCellIIR, filter);
}

void EndpointClient::setCellDelayGain(const protocol::DelayGain& alignment) {
    connection_->call("SetCellDelayGain", &Stub::SetCellDelayGain, alignment);
}

void EndpointClient::setInputGainDelay(const protocol::GainDelay& alignment) {
    connection_->call("SetInputGainDelay", &Stub::SetInputGainDelay, alignment);
}

void EndpointClient::endFilterTransfer(int slot, const std::function<void(double)>& progress) {
    connection_->endFilterTransfer(slot, progress);
}

}  // namespace calibrate
