#include "calibrate/support/EndpointDouble.h"

#include <grpcpp/server_builder.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <thread>

using namespace dio::endpoint;

namespace {

const grpc::Status kOk = grpc::Status::OK;

grpc::Status invalid(const std::string& text) {
    return {grpc::StatusCode::INVALID_ARGUMENT, text};
}

template <class List>
bool isIndexOf(int index, const List& list) {
    return index >= 0 && static_cast<std::size_t>(index) < list.size();
}

FIIRInfo fiirInfo(unsigned variant, float rate) {
    FIIRInfo info;
    info.set_variant(variant);
    info.set_sample_rate(rate);
    info.set_max_taps(1000);
    info.set_max_biquads(30);
    return info;
}

void fill(GainInfo* info, double minimum, double maximum) {
    info->set_minimum(minimum);
    info->set_step(0.5);
    info->set_maximum(maximum);
}

constexpr int kVariants = 2;

}  // namespace

EndpointDouble::EndpointDouble() : variants{fiirInfo(0, 48000), fiirInfo(1, 44100)} {
    device.set_manufacturer("Maker");
    device.set_device_name("Living room");
    device.set_model_name("Model");
    device.set_uuid("01234567-89ab-5def-8123-456789abcdef");
    device.set_num_mics(1);
    device.set_num_slots(8);
    setSpeakers({"Front left", "Front right"});
    setMode(true, true, true);

    int port = 0;
    grpc::ServerBuilder builder;
    builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port);
    builder.RegisterService(this);
    server_ = builder.BuildAndStart();
    if (!server_)
        throw std::runtime_error("the endpoint double found no free port");
    address_ = "127.0.0.1:" + std::to_string(port);
}

EndpointDouble::~EndpointDouble() {
    release();
    server_->Shutdown(std::chrono::system_clock::now());
}

void EndpointDouble::setSpeakers(const std::vector<std::string>& names) {
    speakers.clear();
    for (const auto& name : names) {
        SpeakerInfo speaker;
        speaker.set_name(name);
        speaker.mutable_associated_input()->set_value(static_cast<int>(speakers.size()));
        speakers.push_back(speaker);
    }
    device.set_num_speakers(static_cast<unsigned>(names.size()));
}

void EndpointDouble::lack(const std::string& method) {
    const std::lock_guard lock(mutex_);
    lacking_.insert(method);
}

void EndpointDouble::fail(const std::string& method, const grpc::Status& status, int callsBefore) {
    const std::lock_guard lock(mutex_);
    faults_[method] = {status, callsBefore};
}

void EndpointDouble::hold(const std::string& method) {
    const std::lock_guard lock(mutex_);
    held_.insert(method);
}

void EndpointDouble::awaitHeld() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, std::chrono::seconds(30), [this] { return holding_; }))
        throw std::runtime_error("the method that is to be held was not called");
}

void EndpointDouble::release() {
    const std::lock_guard lock(mutex_);
    held_.clear();
    changed_.notify_all();
}

std::map<int, EndpointDouble::Design> EndpointDouble::stored() const {
    const std::lock_guard lock(mutex_);
    return stored_;
}

void EndpointDouble::store(int slot, const std::string& name, std::int64_t creationTime) {
    const std::lock_guard lock(mutex_);
    auto& info = stored_[slot].info;
    info.set_name(name);
    info.set_filter_type_name("FIR");
    info.set_description("before");
    info.set_creation_time(creationTime);
}

int EndpointDouble::activeSlot() const {
    const std::lock_guard lock(mutex_);
    return activeSlot_;
}

void EndpointDouble::setActive(int slot) {
    const std::lock_guard lock(mutex_);
    activeSlot_ = slot;
}

OperationMode EndpointDouble::mode() const {
    const std::lock_guard lock(mutex_);
    return mode_;
}

void EndpointDouble::setMode(bool gain, bool delay, bool filtering) {
    const std::lock_guard lock(mutex_);
    mode_.set_gain(gain);
    mode_.set_delay(delay);
    mode_.set_filtering(filtering);
}

std::vector<std::string> EndpointDouble::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::string EndpointDouble::lastCallOf(const std::set<std::string>& methods) const {
    const auto all = calls();
    const auto last = std::find_if(all.rbegin(), all.rend(),
                                   [&](const auto& call) { return methods.count(call) > 0; });
    return last == all.rend() ? "" : *last;
}

int EndpointDouble::callsOf(const std::string& method) const {
    const auto all = calls();
    return static_cast<int>(std::count(all.begin(), all.end(), method));
}

grpc::Status EndpointDouble::enter(const std::string& method) {
    std::unique_lock lock(mutex_);
    const auto before = std::count(calls_.begin(), calls_.end(), method);
    calls_.push_back(method);
    if (lacking_.count(method) > 0)
        return {grpc::StatusCode::UNIMPLEMENTED, ""};
    const auto fault = faults_.find(method);
    if (fault != faults_.end() && fault->second.callsBefore == before)
        return fault->second.status;
    if (held_.count(method) > 0) {
        holding_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return held_.count(method) == 0; });
    }
    return kOk;
}

#define ENTER(method)                                    \
    if (const auto status = enter(method); !status.ok()) \
    return status

grpc::Status EndpointDouble::GetDeviceInfo(Context*, const Void*, DeviceInfo* reply) {
    ENTER("GetDeviceInfo");
    *reply = device;
    return kOk;
}

grpc::Status EndpointDouble::GetMicInfo(Context*, const Index* request, MicInfo* reply) {
    ENTER("GetMicInfo");
    if (!isIndexOf(request->value(), microphones))
        return invalid("Index out of bounds");
    reply->set_name(microphones[static_cast<std::size_t>(request->value())]);
    return kOk;
}

grpc::Status EndpointDouble::GetSpeakerInfo(Context*, const Index* request, SpeakerInfo* reply) {
    ENTER("GetSpeakerInfo");
    if (!isIndexOf(request->value(), speakers))
        return invalid("Index must be less then number of speakers.");
    *reply = speakers[static_cast<std::size_t>(request->value())];
    return kOk;
}

grpc::Status EndpointDouble::GetStimuliInfo(Context*, const Void*, StimuliInfo* reply) {
    ENTER("GetStimuliInfo");
    reply->add_stimuli()->set_type(STIMULUS_TYPE_LOG_SWEEP);
    reply->add_stimuli()->set_type(STIMULUS_TYPE_PINK_NOISE);
    return kOk;
}

grpc::Status EndpointDouble::GetPinkNoiseInfo(Context*, const VariantId* request,
                                              PinkNoiseInfo* reply) {
    ENTER("GetPinkNoiseInfo");
    if (request->id() != 0)
        return invalid("Invalid variant id.");
    reply->set_sample_rate(sampleRate);
    return kOk;
}

grpc::Status EndpointDouble::GetLogSweepInfo(Context*, const VariantId* request,
                                             LogSweepInfo* reply) {
    ENTER("GetLogSweepInfo");
    if (!sweeps.empty()) {
        if (!isIndexOf(request->id(), sweeps))
            return invalid("Invalid variant id.");
        *reply = sweeps[static_cast<std::size_t>(request->id())];
        return kOk;
    }
    if (request->id() < 0 || request->id() >= kVariants)
        return invalid("Invalid variant id.");
    const bool full = request->id() == 0;
    reply->set_variant(static_cast<unsigned>(request->id()));
    reply->set_sample_rate(sampleRate);
    reply->set_start_frequency(10);
    reply->set_end_frequency(full ? 24000 : 300);
    reply->set_length(full ? 240000 : 24000);
    reply->set_silence(full ? 24000 : 0);
    reply->set_fade_out_tail(full ? 300 : 0);
    reply->set_num_periods(1);
    return kOk;
}

grpc::Status EndpointDouble::GetSlotInfo(Context*, const Index* request, SlotInfo* reply) {
    ENTER("GetSlotInfo");
    if (request->value() < 0 || static_cast<unsigned>(request->value()) >= device.num_slots())
        return invalid("index out of range");
    const std::lock_guard lock(mutex_);
    if (const auto found = stored_.find(request->value()); found != stored_.end()) {
        *reply = found->second.info;
        reply->clear_slot();
    }
    reply->set_num_sections(6);
    return kOk;
}

/// Inputs and outputs of a section. The channels between the bass sections are the speakers with a
/// bass input, then a bass channel for each group, then two bands for each speaker.
std::pair<unsigned, unsigned> EndpointDouble::dimensions(unsigned section) const {
    const auto all = static_cast<unsigned>(speakers.size());
    std::set<unsigned> groups;
    unsigned subwoofers = 0;
    for (const auto& speaker : speakers) {
        if (speaker.kind() == 4)
            ++subwoofers;
        else
            groups.insert(speaker.group());
    }
    const unsigned channels = all - subwoofers + (subwoofers > 0 ? 1 : 0);
    const unsigned grouped = channels + static_cast<unsigned>(groups.size());
    const unsigned bands = 2 * (all - subwoofers) + subwoofers;
    const std::array<unsigned, 6> stages{channels, grouped, grouped, bands, bands, all};
    return section < 5 ? std::pair(stages.at(section), stages.at(section + 1))
                       : std::pair(all, all);
}

grpc::Status EndpointDouble::GetSectionInfo(Context*, const Index* request, SectionInfo* reply) {
    ENTER("GetSectionInfo");
    if (request->value() < 0 || request->value() > 5)
        return invalid("Section index out of range");
    reply->set_section(static_cast<unsigned>(request->value()));
    const auto [inputs, outputs] = dimensions(static_cast<unsigned>(request->value()));
    reply->set_num_inputs(inputs);
    reply->set_num_outputs(outputs);
    reply->set_disposition(request->value() == 5 ? SECTION_DISPOSITION_DIAGONAL
                                                 : SECTION_DISPOSITION_MATRIX);
    return kOk;
}

grpc::Status EndpointDouble::GetCellInfo(Context*, const CellIndex* request, CellInfo* reply) {
    ENTER("GetCellInfo");
    const auto section = request->section();
    reply->set_kind(section == 5                   ? FILTER_KIND_FIIR
                    : section == 2 || section == 4 ? FILTER_KIND_DELAY_GAIN
                                                   : FILTER_KIND_IIR);
    for (unsigned i = 0; i < variants.size(); ++i)
        reply->add_variants(i);
    return kOk;
}

grpc::Status EndpointDouble::GetFIIRInfo(Context*, const VariantId* request, FIIRInfo* reply) {
    ENTER("GetFIIRInfo");
    if (!isIndexOf(request->id(), variants))
        return invalid("variant out of range");
    *reply = variants[static_cast<std::size_t>(request->id())];
    return kOk;
}

grpc::Status EndpointDouble::GetIIRInfo(Context*, const VariantId* request, IIRInfo* reply) {
    ENTER("GetIIRInfo");
    if (!isIndexOf(request->id(), variants))
        return invalid("variant out of range");
    reply->set_variant(static_cast<unsigned>(request->id()));
    reply->set_sample_rate(variants[static_cast<std::size_t>(request->id())].sample_rate());
    reply->set_max_biquads(6);
    return kOk;
}

grpc::Status EndpointDouble::GetDelayGainInfo(Context*, const VariantId* request,
                                              DelayGainInfo* reply) {
    ENTER("GetDelayGainInfo");
    if (!isIndexOf(request->id(), variants))
        return invalid("variant out of range");
    reply->set_variant(static_cast<unsigned>(request->id()));
    reply->set_sample_rate(variants[static_cast<std::size_t>(request->id())].sample_rate());
    reply->set_max_delay(150);
    reply->set_max_gain(10);
    return kOk;
}

grpc::Status EndpointDouble::GetSpeakerGainInfo(Context*, const Void*, GainInfo* reply) {
    ENTER("GetSpeakerGainInfo");
    fill(reply, -60, 0);
    return kOk;
}

grpc::Status EndpointDouble::GetMicGainInfo(Context*, const Void*, GainInfo* reply) {
    ENTER("GetMicGainInfo");
    fill(reply, -20, 0);
    return kOk;
}

grpc::Status EndpointDouble::GetStimuliGainInfo(Context*, const Void*, GainInfo* reply) {
    ENTER("GetStimuliGainInfo");
    fill(reply, -12, 0);
    return kOk;
}

grpc::Status EndpointDouble::GetStreamingInfo(Context*, const Void*, StreamingInfo* reply) {
    ENTER("GetStreamingInfo");
    reply->set_sample_rate(sampleRate);
    reply->set_block_length(512);
    reply->set_supports_recording(true);
    reply->set_supports_streaming(true);
    return kOk;
}

grpc::Status EndpointDouble::GetOperationMode(Context*, const Void*, OperationMode* reply) {
    ENTER("GetOperationMode");
    *reply = mode();
    return kOk;
}

grpc::Status EndpointDouble::SetOperationMode(Context*, const OperationMode* request, Void*) {
    ENTER("SetOperationMode");
    const std::lock_guard lock(mutex_);
    mode_ = *request;
    mode_.set_filtering(request->filtering() && !keepsCorrectionOff);
    return kOk;
}

grpc::Status EndpointDouble::GetActiveSlot(Context*, const Void*, Index* reply) {
    ENTER("GetActiveSlot");
    reply->set_value(activeSlot());
    return kOk;
}

grpc::Status EndpointDouble::SetActiveSlot(Context*, const Index* request, Void*) {
    ENTER("SetActiveSlot");
    const std::lock_guard lock(mutex_);
    activeSlot_ = stored_.count(request->value()) > 0 ? request->value() : -1;
    return kOk;
}

grpc::Status EndpointDouble::BeginFilterTransfer(Context*, const SlotInfo* request, Void*) {
    ENTER("BeginFilterTransfer");
    const std::lock_guard lock(mutex_);
    transfer_ = Design();
    transfer_.info = *request;
    return kOk;
}

grpc::Status EndpointDouble::SetTransferCell(Context*, const CellIndex* request, Void*) {
    ENTER("SetTransferCell");
    if (request->section() == 5 && (request->input_channel() != request->output_channel() ||
                                    request->input_channel() >= speakers.size()))
        return invalid("Input channel index out of range");
    const std::lock_guard lock(mutex_);
    transferCell_ = *request;
    return kOk;
}

grpc::Status EndpointDouble::SetCellFIIR(Context*, const FIIR* request, Void*) {
    ENTER("SetCellFIIR");
    const std::lock_guard lock(mutex_);
    const auto& taps = request->fir().taps();
    const auto& biquads = request->iir().biquads();
    const std::pair cell(transferCell_.input_channel(), request->info().variant());
    transfer_.taps[cell].assign(taps.begin(), taps.end());
    transfer_.sections[cell].assign(biquads.begin(), biquads.end());
    return kOk;
}

grpc::Status EndpointDouble::SetCellIIR(Context*, const IIR* request, Void*) {
    ENTER("SetCellIIR");
    const std::lock_guard lock(mutex_);
    transfer_.bassFilters[{transferCell_.section(), transferCell_.input_channel(),
                           transferCell_.output_channel(), request->info().variant()}] = *request;
    return kOk;
}

grpc::Status EndpointDouble::SetCellDelayGain(Context*, const DelayGain* request, Void*) {
    ENTER("SetCellDelayGain");
    const std::lock_guard lock(mutex_);
    transfer_.bassDelays[{transferCell_.section(), transferCell_.input_channel(),
                          transferCell_.output_channel(), request->info().variant()}] = *request;
    return kOk;
}

grpc::Status EndpointDouble::SetInputGainDelay(Context*, const GainDelay* request, Void*) {
    ENTER("SetInputGainDelay");
    const std::lock_guard lock(mutex_);
    transfer_.alignment[request->input()] = *request;
    return kOk;
}

grpc::Status EndpointDouble::EndFilterTransfer(Context*, const Index* request,
                                               Writer<Progress>* writer) {
    ENTER("EndFilterTransfer");
    const std::lock_guard lock(mutex_);
    if (request->value() != transfer_.info.slot())
        return invalid("wrong slot index");
    for (const float value : {0.1F, 0.5F, 0.9F, 1.0F}) {
        Progress progress;
        progress.set_value(value);
        writer->Write(progress);
    }
    stored_[request->value()] = transfer_;
    return kOk;
}

grpc::Status EndpointDouble::UpdateSlotInfo(Context*, const SlotInfoUpdate* request, Void*) {
    ENTER("UpdateSlotInfo");
    const std::lock_guard lock(mutex_);
    if (const auto found = stored_.find(request->slot()); found != stored_.end()) {
        auto& info = found->second.info;
        info.set_name(request->name());
        info.set_filter_type_name(request->filter_type_name());
        info.set_description(request->description());
    }
    return kOk;
}

grpc::Status EndpointDouble::DeleteSlot(Context*, const Index* request, Void*) {
    ENTER("DeleteSlot");
    const std::lock_guard lock(mutex_);
    stored_.erase(request->value());
    if (activeSlot_ == request->value())
        activeSlot_ = -1;
    return kOk;
}

grpc::Status EndpointDouble::GetSpeakerGain(Context*, const Void*, Gain* reply) {
    ENTER("GetSpeakerGain");
    reply->set_gain(gains().speaker);
    return kOk;
}

grpc::Status EndpointDouble::SetSpeakerGain(Context*, const Gain* request, Void*) {
    ENTER("SetSpeakerGain");
    const std::lock_guard lock(mutex_);
    if (!keepsSpeakerGain)
        gains_.speaker = request->gain();
    return kOk;
}

grpc::Status EndpointDouble::GetMicGain(Context*, const Void*, Gain* reply) {
    ENTER("GetMicGain");
    reply->set_gain(gains().microphone);
    return kOk;
}

grpc::Status EndpointDouble::SetMicGain(Context*, const Gain* request, Void*) {
    ENTER("SetMicGain");
    const std::lock_guard lock(mutex_);
    gains_.microphone = request->gain();
    return kOk;
}

grpc::Status EndpointDouble::GetStimuliGain(Context*, const Index* request, StimuliGain* reply) {
    ENTER("GetStimuliGain");
    if (!isIndexOf(request->value(), speakers))
        return invalid("Index is out of bounds.");
    const auto all = gains().stimuli;
    const auto found = all.find(request->value());
    reply->set_gain(found == all.end() ? -std::numeric_limits<double>::infinity() : found->second);
    reply->set_channel(request->value());
    return kOk;
}

grpc::Status EndpointDouble::SetStimuliGain(Context*, const StimuliGain* request, Void*) {
    ENTER("SetStimuliGain");
    if (!isIndexOf(request->channel(), speakers))
        return invalid("Index is out of bounds.");
    const std::lock_guard lock(mutex_);
    gains_.stimuli[request->channel()] = request->gain();
    return kOk;
}

grpc::Status EndpointDouble::PrepareStimuli(Context*, const StimuliPrepare* request, Void*) {
    ENTER("PrepareStimuli");
    const std::lock_guard lock(mutex_);
    prepared_ = *request;
    return kOk;
}

grpc::Status EndpointDouble::StartStimuli(Context* context, const StimuliStart* request,
                                          Writer<Progress>* writer) {
    ENTER("StartStimuli");
    {
        const std::lock_guard lock(mutex_);
        startTime_ = request->start_time();
    }
    return ended(context,
                 onStartStimuli ? onStartStimuli(context, writer) : played(context, writer));
}

grpc::Status EndpointDouble::StartRecordingStimuli(Context* context, const StimuliStart* request,
                                                   Writer<AudioBuffers>* writer) {
    ENTER("StartRecordingStimuli");
    {
        const std::lock_guard lock(mutex_);
        startTime_ = request->start_time();
    }
    const bool repeats = prepared().stimulus().type() == STIMULUS_TYPE_PINK_NOISE;
    return ended(context,
                 onRecording ? onRecording(context, writer) : recorded(context, writer, repeats));
}

grpc::Status EndpointDouble::StartStreaming(Context* context,
                                            ReaderWriter<AudioBuffers, AudioBuffers>* stream) {
    ENTER("StartStreaming");
    return ended(context,
                 onRecording ? onRecording(context, stream) : recorded(context, stream, true));
}

grpc::Status EndpointDouble::Notifications(
    Context* context, ReaderWriter<NotificationInfo, ClientNotificationInfo>* stream) {
    ENTER("Notifications");
    const std::unique_lock client(notificationClient_, std::try_to_lock);
    if (!client.owns_lock())
        return {grpc::StatusCode::RESOURCE_EXHAUSTED, "client already connected"};
    if (onNotifications)
        return ended(context, onNotifications(context));
    stream->Write({});
    while (!context->IsCancelled()) {
        std::vector<std::vector<int>> changes;
        {
            const std::lock_guard lock(mutex_);
            changes.swap(notifications_);
        }
        for (const auto& kinds : changes) {
            NotificationInfo message;
            for (const int kind : kinds)
                message.add_kinds(static_cast<NotificationKind>(kind));
            stream->Write(message);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return ended(context, {grpc::StatusCode::CANCELLED, "cancelled"});
}

#undef ENTER

grpc::Status EndpointDouble::awaitCancelled(Context* context) {
    while (!context->IsCancelled())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return grpc::Status::CANCELLED;
}

void EndpointDouble::send(Writer<Progress>* writer, float value) {
    Progress progress;
    progress.set_value(value);
    writer->Write(progress);
}

void EndpointDouble::send(AudioWriter* writer, const std::vector<float>& samples, unsigned mic) {
    AudioBuffers message;
    auto* buffer = message.add_buffers();
    buffer->set_mic(mic);
    buffer->mutable_samples()->Add(samples.begin(), samples.end());
    writer->Write(message, grpc::WriteOptions());
}

/// As a device does: from -1, a noise beyond 100; and 1.0 at the end.
grpc::Status EndpointDouble::played(Context* context, Writer<Progress>* writer) {
    const bool repeats = prepared().stimulus().type() == STIMULUS_TYPE_PINK_NOISE;
    send(writer, 0);
    for (int percent = -1; percent < 100 || repeats; ++percent) {
        if (context->IsCancelled())
            return grpc::Status::CANCELLED;
        send(writer, static_cast<float>(percent));
        if (repeats)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    send(writer, 1);
    return kOk;
}

/// A quiet square wave for as long as the prepared sweep and its tail last.
grpc::Status EndpointDouble::recorded(Context* context, AudioWriter* writer, bool untilCancelled) {
    constexpr int kBlocksOfSweep = 55;
    constexpr int kBlocksOfTail = 15;
    std::vector<float> block(4800);
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = i % 96 < 48 ? 0.1F : -0.1F;
    const int count = prepared().speakers_size() * kBlocksOfSweep + kBlocksOfTail;
    for (int i = 0; i < count || untilCancelled; ++i) {
        if (context->IsCancelled())
            return grpc::Status::CANCELLED;
        send(writer, block);
    }
    return kOk;
}

grpc::Status EndpointDouble::ended(Context* context, const grpc::Status& status) {
    const std::lock_guard lock(mutex_);
    cancelledCalls_ += context->IsCancelled() ? 1 : 0;
    changed_.notify_all();
    return status;
}

void EndpointDouble::notify(const std::vector<int>& kinds) {
    const std::lock_guard lock(mutex_);
    notifications_.push_back(kinds);
}

void EndpointDouble::vanish() {
    server_->Shutdown(std::chrono::system_clock::now());
}

EndpointDouble::Gains EndpointDouble::gains() const {
    const std::lock_guard lock(mutex_);
    return gains_;
}

void EndpointDouble::setGains(const Gains& gains) {
    const std::lock_guard lock(mutex_);
    gains_ = gains;
}

StimuliPrepare EndpointDouble::prepared() const {
    const std::lock_guard lock(mutex_);
    return prepared_;
}

std::uint64_t EndpointDouble::startTime() const {
    const std::lock_guard lock(mutex_);
    return startTime_;
}

bool EndpointDouble::awaitCancelledCalls(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(30),
                             [&] { return cancelledCalls_ >= count; });
}
