#include "EmptyEndpoint.h"

#include <grpcpp/grpcpp.h>

using grpc::Status;

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
