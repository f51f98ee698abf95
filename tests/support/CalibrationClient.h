#pragma once

#include "support/FilterDesign.h"

#include <endpoint.grpc.pb.h>

#include <chrono>
#include <memory>
#include <string>

/// A calibration client of one device. Each call has 10 s to be answered.
class CalibrationClient {
public:
    static constexpr const char* kDeviceAddress = "127.0.0.1:5002";

    explicit CalibrationClient(const std::string& address = kDeviceAddress);

    /// Whether the device answers; waits for a connection until `deadline`.
    bool answersBefore(std::chrono::system_clock::time_point deadline);

    /// From BeginFilterTransfer to the end of EndFilterTransfer; the first call that fails ends it.
    grpc::Status transfer(const dio::endpoint::SlotInfo& slot, const FilterDesign& design);
    grpc::Status activate(int slot);
    grpc::Status remove(int slot);
    /// INVALID_ARGUMENT and so on is the device's answer; the reply is left alone then.
    grpc::Status slotInfo(int slot, dio::endpoint::SlotInfo* reply);
    grpc::Status deviceInfo(dio::endpoint::DeviceInfo* reply);

    dio::endpoint::EndpointDevice::Stub& stub() { return *stub_; }

    /// For calls made through stub(): 10 s from now.
    static void limit(grpc::ClientContext* context);

private:
    grpc::Status begin(const dio::endpoint::SlotInfo& slot);
    grpc::Status send(const CellDesign& design);
    grpc::Status end(int slot);

    const std::unique_ptr<dio::endpoint::EndpointDevice::Stub> stub_;
};

/// A slot's name and creation time for a transfer.
dio::endpoint::SlotInfo makeSlot(int slot, const std::string& name, std::int64_t creationTime);
