#include "system/DeviceTest.h"

#include "segment/SegmentReader.h"

#include <sys/shm.h>

namespace {

constexpr int kSegmentKey = 1234;

ProcessResult runTool(const char* path, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), path);
    return runProcess(arguments);
}

/// What a killed device has left.
void removeSegment() {
    const int id = shmget(kSegmentKey, 0, 0);
    if (id >= 0)
        shmctl(id, IPC_RMID, nullptr);
}

}  // namespace

DeviceTest::~DeviceTest() {
    if (!device_)
        return;
    if (HasFailure())
        std::cerr << "Log of the device:\n" << device_->log();
    device_->kill();
    removeSegment();
}

DeviceProcess& DeviceTest::device() {
    if (!device_)
        device_ = std::make_unique<DeviceProcess>(options_);
    return *device_;
}

void DeviceTest::start() {
    device().start();
    client_ = std::make_unique<CalibrationClient>();
    tree_ = std::make_unique<ControlClient>(device().controlSocket());
}

void DeviceTest::restart() {
    const ProcessEnd end = device().stop();
    EXPECT_EQ(end.exitCode, 0) << "signal " << end.signal;
    start();
}

void DeviceTest::transfer(int slot, const FilterDesign& design, const std::string& name) {
    static std::int64_t creationTime = 1'700'000'000;
    const grpc::Status status = client().transfer(makeSlot(slot, name, ++creationTime), design);
    ASSERT_TRUE(status.ok()) << status.error_message();
}

void DeviceTest::activate(int slot, const FilterDesign& design) {
    const grpc::Status status = client().activate(slot);
    ASSERT_TRUE(status.ok()) << status.error_message();
    ASSERT_TRUE(awaitDesign(design)) << "slot " << slot;
}

std::unique_ptr<const DiracConfiguration> DeviceTest::image() const {
    return segment::SegmentReader(kSegmentKey).read();
}

bool DeviceTest::awaitDesign(const FilterDesign& design) const {
    return eventually([&] { return holdsDesign(*image(), design); });
}

bool DeviceTest::awaitBypass() const {
    return eventually([&] { return image()->bypass == 1; });
}

ProcessResult DeviceTest::calibrate(std::vector<std::string> arguments) const {
    return runTool(VESK_CALIBRATE, std::move(arguments));
}

ProcessResult DeviceTest::treeTool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--socket", device().controlSocket().string()});
    return runTool(VESK_TREE, std::move(arguments));
}

ProcessResult DeviceTest::segmentTool(std::vector<std::string> arguments) const {
    return runTool(VESK_SEGMENT, std::move(arguments));
}

bool DeviceTest::deviceAnswers() {
    CalibrationClient fresh;
    return fresh.answersBefore(std::chrono::system_clock::now() + std::chrono::seconds(10));
}
