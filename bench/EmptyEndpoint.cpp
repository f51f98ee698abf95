#include "EmptyEndpoint.h"

#include "FrameTime.h"

#include <grpcpp/grpcpp.h>

#include <chrono>
#include <cstdint>
#include <thread>

using grpc::Status;

namespace {

constexpr std::int64_t kBlock = 128;  // frames, as the device's
constexpr std::chrono::milliseconds kPollPeriod{100};

}  // namespace

Status EmptyEndpoint::GetDeviceInfo(Context*, const Void*, dio::endpoint::DeviceInfo*) {
    return Status::OK;
}

Status EmptyEndpoint::GetSpeakerInfo(Context*, const Index*, dio::endpoint::SpeakerInfo*) {
    return Status::OK;
}

Status EmptyEndpoint::GetSectionInfo(Context*, const Index*, dio::endpoint::SectionInfo*) {
    return Status::OK;
}

Status EmptyEndpoint::GetFIIRInfo(Context*, const dio::endpoint::Variant*,
                                  dio::endpoint::FIIRInfo*) {
    return Status::OK;
}

Status EmptyEndpoint::BeginFilterTransfer(Context*, const dio::endpoint::SlotInfo*, Void*) {
    return Status::OK;
}

Status EmptyEndpoint::SetTransferCell(Context*, const dio::endpoint::CellIndex*, Void*) {
    return Status::OK;
}

Status EmptyEndpoint::SetCellFIIR(Context*, const dio::endpoint::FIIR*, Void*) {
    return Status::OK;
}

Status EmptyEndpoint::SetCellIIR(Context*, const dio::endpoint::IIR*, Void*) {
    return Status::OK;
}

Status EmptyEndpoint::SetCellDelayGain(Context*, const dio::endpoint::DelayGain*, Void*) {
    return Status::OK;
}

Status EmptyEndpoint::EndFilterTransfer(Context*, const Index*,
                                        grpc::ServerWriter<dio::endpoint::Progress>* writer) {
    for (const float value : {0.1F, 0.5F, 0.9F, 1.0F}) {
        dio::endpoint::Progress progress;
        progress.set_value(value);
        writer->Write(progress);
    }
    return Status::OK;
}

/// Each block as soon as its last frame would be captured.
Status EmptyEndpoint::StartStreaming(Context* context, AudioStream* stream) {
    dio::endpoint::AudioBuffers message;
    auto& samples = *message.add_buffers()->mutable_samples();
    samples.Resize(kBlock, 0.0F);
    for (std::int64_t frame = frametime::frameAt(frametime::Clock::now()); !context->IsCancelled();
         frame += kBlock) {
        for (int i = 0; i < kBlock; ++i)
            samples.Set(i, static_cast<float>(frametime::sampleOf(frame + i)) * 0x1p-31F);
        std::this_thread::sleep_until(frametime::beginOf(frame + kBlock));
        stream->Write(message);
    }
    return Status::OK;
}

Status EmptyEndpoint::Notifications(Context* context, NotificationStream* stream) {
    stream->Write({});
    while (!context->IsCancelled())
        std::this_thread::sleep_for(kPollPeriod);
    return Status::OK;
}
