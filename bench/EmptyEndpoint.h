#pragma once

#include <endpoint.grpc.pb.h>

/// The calibration service with handlers that do nothing: what gRPC alone costs.
///
/// It answers the topology queries and the calls of a filter transfer; EndFilterTransfer streams
/// its four messages. StartStreaming sends the blocks of a microphone like that of ClockPlugin.cpp;
/// Notifications looks for changes as often as the device does, and never finds one.
class EmptyEndpoint : public dio::endpoint::EndpointDevice::Service {
public:
    using Context = grpc::ServerContext;
    using Void = dio::endpoint::Void;
    using Index = dio::endpoint::Index;
    using AudioStream =
        grpc::ServerReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>;
    using NotificationStream = grpc::ServerReaderWriter<dio::endpoint::NotificationInfo,
                                                        dio::endpoint::ClientNotificationInfo>;

    grpc::Status GetDeviceInfo(Context*, const Void*, dio::endpoint::DeviceInfo*) override;
    grpc::Status GetSpeakerInfo(Context*, const Index*, dio::endpoint::SpeakerInfo*) override;
    grpc::Status GetSectionInfo(Context*, const Index*, dio::endpoint::SectionInfo*) override;
    grpc::Status GetFIIRInfo(Context*, const dio::endpoint::Variant*,
                             dio::endpoint::FIIRInfo*) override;

    grpc::Status BeginFilterTransfer(Context*, const dio::endpoint::SlotInfo*, Void*) override;
    grpc::Status SetTransferCell(Context*, const dio::endpoint::CellIndex*, Void*) override;
    grpc::Status SetCellFIIR(Context*, const dio::endpoint::FIIR*, Void*) override;
    grpc::Status SetCellIIR(Context*, const dio::endpoint::IIR*, Void*) override;
    grpc::Status SetCellDelayGain(Context*, const dio::endpoint::DelayGain*, Void*) override;
    grpc::Status EndFilterTransfer(Context*, const Index*,
                                   grpc::ServerWriter<dio::endpoint::Progress>* writer) override;

    grpc::Status StartStreaming(Context* context, AudioStream* stream) override;
    grpc::Status Notifications(Context* context, NotificationStream* stream) override;
};
