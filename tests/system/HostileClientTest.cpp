// A client that sends what no calibration client should: it gets an error, and the device goes on
// as if nothing had been.

#include "system/DeviceTest.h"

#include <cstdlib>
#include <future>
#include <limits>
#include <sstream>

namespace {

using dio::endpoint::EndpointDevice;
using grpc::StatusCode;
using testing::HasSubstr;

constexpr int kLargest = std::numeric_limits<int>::max();

class HostileClientTest : public DeviceTest {
protected:
    void SetUp() override {
        start();
        transfer(0, design);
        activate(0, design);
    }

    void TearDown() override {
        EXPECT_TRUE(device().isRunning());
        EXPECT_TRUE(deviceAnswers());
        dio::endpoint::SlotInfo info;
        EXPECT_TRUE(client().slotInfo(0, &info).ok());
        EXPECT_EQ(info.name(), "Design");
    }

    template <typename Request, typename Reply>
    grpc::Status call(grpc::Status (EndpointDevice::Stub::*method)(grpc::ClientContext*,
                                                                   const Request&, Reply*),
                      const Request& request) {
        grpc::ClientContext context;
        CalibrationClient::limit(&context);
        Reply reply;
        return (client().stub().*method)(&context, request, &reply);
    }

    grpc::Status endTransfer(int slot) {
        grpc::ClientContext context;
        CalibrationClient::limit(&context);
        const auto reader = client().stub().EndFilterTransfer(&context, indexOf(slot));
        dio::endpoint::Progress progress;
        while (reader->Read(&progress)) {
        }
        return reader->Finish();
    }

    static dio::endpoint::Index indexOf(int value) {
        dio::endpoint::Index index;
        index.set_value(value);
        return index;
    }

    static dio::endpoint::CellIndex cell(std::uint32_t section, std::uint32_t channel) {
        dio::endpoint::CellIndex index;
        index.set_section(section);
        index.set_input_channel(channel);
        index.set_output_channel(channel);
        return index;
    }

    static dio::endpoint::FIIR fiirOf(int taps) {
        dio::endpoint::FIIR fiir;
        for (int i = 0; i < taps; ++i)
            fiir.mutable_fir()->add_taps(0.5F);
        return fiir;
    }

    void openTransfer(int slot) {
        ASSERT_TRUE(
            call(&EndpointDevice::Stub::BeginFilterTransfer, makeSlot(slot, "Hostile", 1)).ok());
        ASSERT_TRUE(call(&EndpointDevice::Stub::SetTransferCell, cell(5, 0)).ok());
    }

    const FilterDesign design = makeDesign({}, 1);
};

/// Looks at the memory of the device. The address sanitizer must not keep what has been freed.
class DeviceMemoryTest : public HostileClientTest {
protected:
    void SetUp() override {
        const char* const present = std::getenv("ASAN_OPTIONS");
        const std::string given = present ? std::string(present) + ":" : "";
        options().wrapper = {"env", "ASAN_OPTIONS=" + given + "quarantine_size_mb=1"};
        HostileClientTest::SetUp();
    }

    long residentKilobytes() { return kilobytes("VmRSS:"); }
    long mostResidentKilobytes() { return kilobytes("VmHWM:"); }

    /// Of four messages at a time, kB. The address sanitizer takes several times as much.
    static long mostGrowth() { return (std::getenv("ASAN_OPTIONS") ? 600 : 200) * 1024; }

    /// As large as a message may be, and 28 times as large when it is unpacked.
    static dio::endpoint::IIR largestMessage() {
        dio::endpoint::IIR iir;
        for (int i = 0; i < 220'000; ++i)
            iir.add_biquads();
        return iir;
    }

private:
    long kilobytes(const std::string& field) {
        std::istringstream status(
            readFile("/proc/" + std::to_string(device().process().id()) + "/status"));
        for (std::string line; std::getline(status, line);)
            if (line.starts_with(field))
                return std::stol(line.substr(field.size()));
        throw std::runtime_error(field + " of the device");
    }
};

TEST_F(HostileClientTest, transferCallsWithoutAnOpenTransferAreRefused) {
    ASSERT_TRUE(call(&EndpointDevice::Stub::SetTransferCell, cell(5, 0)).ok());
    const std::vector<grpc::Status> answers{
        call(&EndpointDevice::Stub::SetCellFIIR, fiirOf(1)),
        call(&EndpointDevice::Stub::SetCellIIR, dio::endpoint::IIR()),
        call(&EndpointDevice::Stub::SetCellDelayGain, dio::endpoint::DelayGain()),
        call(&EndpointDevice::Stub::SetInputGainDelay, dio::endpoint::GainDelay()),
        endTransfer(0),
    };
    for (const grpc::Status& answer : answers) {
        EXPECT_EQ(answer.error_code(), StatusCode::FAILED_PRECONDITION);
        EXPECT_EQ(answer.error_message(), "No filter transfer is open");
    }
    EXPECT_TRUE(holdsDesign(*image(), design));
}

TEST_F(HostileClientTest, aMessageAboveTheLimitIsRefused) {
    openTransfer(1);
    const grpc::Status answer = call(&EndpointDevice::Stub::SetCellFIIR, fiirOf(2'000'000));
    EXPECT_EQ(answer.error_code(), StatusCode::RESOURCE_EXHAUSTED);
}

TEST_F(HostileClientTest, moreTapsThanAnyDeviceHasAreRefusedWithTheLimit) {
    openTransfer(1);
    const grpc::Status answer = call(&EndpointDevice::Stub::SetCellFIIR, fiirOf(65'537));
    EXPECT_EQ(answer.error_code(), StatusCode::INVALID_ARGUMENT);
    EXPECT_THAT(answer.error_message(), HasSubstr("65536"));
}

TEST_F(HostileClientTest, moreBiquadsThanAnyDeviceHasAreRefusedWithTheLimit) {
    openTransfer(1);
    dio::endpoint::IIR iir;
    for (int i = 0; i < 4097; ++i)
        iir.add_biquads()->set_b0(1);
    const grpc::Status answer = call(&EndpointDevice::Stub::SetCellIIR, iir);
    EXPECT_EQ(answer.error_code(), StatusCode::INVALID_ARGUMENT);
    EXPECT_THAT(answer.error_message(), HasSubstr("4096"));
}

TEST_F(HostileClientTest, theLargestIndexIsRefusedWhereverAnIndexIsTaken) {
    using Stub = EndpointDevice::Stub;
    dio::endpoint::Variant variant;
    variant.set_id(kLargest);
    openTransfer(1);
    dio::endpoint::GainDelay gainDelay;
    gainDelay.set_input(kLargest);
    const std::vector<grpc::Status> answers{
        call(&Stub::GetSpeakerInfo, indexOf(kLargest)),
        call(&Stub::GetMicInfo, indexOf(kLargest)),
        call(&Stub::GetSectionInfo, indexOf(kLargest)),
        call(&Stub::GetSlotInfo, indexOf(kLargest)),
        call(&Stub::GetFIIRInfo, variant),
        call(&Stub::GetIIRInfo, variant),
        call(&Stub::GetDelayGainInfo, variant),
        call(&Stub::GetLogSweepInfo, variant),
        call(&Stub::GetPinkNoiseInfo, variant),
        call(&Stub::SetTransferCell, cell(5, std::numeric_limits<std::uint32_t>::max())),
        call(&Stub::SetTransferCell, cell(std::numeric_limits<std::uint32_t>::max(), 0)),
        call(&Stub::SetInputGainDelay, gainDelay),
        call(&Stub::BeginFilterTransfer, makeSlot(kLargest, "", 1)),
        endTransfer(kLargest),
    };
    for (std::size_t i = 0; i < answers.size(); ++i)
        EXPECT_EQ(answers[i].error_code(), StatusCode::INVALID_ARGUMENT) << "call " << i;
}

TEST_F(HostileClientTest, anUnknownSlotIsNeitherActivatedNorDeleted) {
    EXPECT_TRUE(client().activate(kLargest).ok());
    EXPECT_TRUE(client().remove(kLargest).ok());
    EXPECT_TRUE(client().remove(std::numeric_limits<int>::min()).ok());
    EXPECT_EQ(tree().value(kSlotsSettings).at("activeSlot"), 0);
    EXPECT_TRUE(holdsDesign(*image(), design));
}

TEST_F(HostileClientTest, aDesignLargerThanTheImageIsStoredButBypassed) {
    openTransfer(1);
    ASSERT_TRUE(call(&EndpointDevice::Stub::SetCellFIIR, fiirOf(2000)).ok());
    ASSERT_TRUE(endTransfer(1).ok());
    ASSERT_TRUE(client().activate(1).ok());
    EXPECT_TRUE(device().awaitLog("does not fit the DSP's image"));
    EXPECT_TRUE(awaitBypass());
    activate(0, design);
}

TEST_F(DeviceMemoryTest, repeatingTheLargestTransferDoesNotMakeTheDeviceGrow) {
    const auto fillCell = [&] {
        openTransfer(1);
        ASSERT_TRUE(call(&EndpointDevice::Stub::SetCellFIIR, fiirOf(65'536)).ok());
    };
    for (int i = 0; i < 10; ++i)
        fillCell();
    const long before = residentKilobytes();
    for (int i = 0; i < 200; ++i)
        fillCell();
    EXPECT_LT(residentKilobytes(), before + 8 * 1024) << "kB, from " << before;
}

TEST_F(DeviceMemoryTest, manyOfTheLargestMessagesAtOnceTakeLittleMemory) {
    constexpr int kClients = 64;
    openTransfer(1);
    const auto message = largestMessage();
    const long before = mostResidentKilobytes();
    std::vector<std::unique_ptr<CalibrationClient>> clients;
    std::vector<std::future<grpc::StatusCode>> answers;
    for (int i = 0; i < kClients; ++i) {
        auto& client = *clients.emplace_back(std::make_unique<CalibrationClient>());
        answers.push_back(std::async(std::launch::async, [&client, &message] {
            grpc::ClientContext context;
            dio::endpoint::Void reply;
            return client.stub().SetCellIIR(&context, message, &reply).error_code();
        }));
    }
    for (auto& answer : answers)
        EXPECT_EQ(answer.get(), StatusCode::INVALID_ARGUMENT);
    EXPECT_LT(mostResidentKilobytes(), before + mostGrowth()) << "kB, from " << before;
}

TEST_F(HostileClientTest, anAbandonedTransferIsReplacedByTheNextOne) {
    openTransfer(1);
    ASSERT_TRUE(call(&EndpointDevice::Stub::SetCellFIIR, fiirOf(1000)).ok());
    const FilterDesign next = makeDesign({2, 20}, 2);
    transfer(2, next);
    activate(2, next);
    EXPECT_EQ(tree().value(kSlotsSettings).at("slots_").size(), 2U);
    activate(0, design);
}

}  // namespace
