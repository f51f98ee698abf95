#include "support/DeviceFixture.h"

#include "platform/cm/Tree.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/services/TrString.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

using namespace std::chrono_literals;
using dio::endpoint::Void;

namespace {

constexpr auto kPatience = 20s;
constexpr int kKey = 1234;

const char* nameOf(grpc::StatusCode code) {
    switch (code) {
        case grpc::StatusCode::CANCELLED:
            return "CANCELLED";
        case grpc::StatusCode::UNKNOWN:
            return "UNKNOWN";
        case grpc::StatusCode::INVALID_ARGUMENT:
            return "INVALID_ARGUMENT";
        case grpc::StatusCode::RESOURCE_EXHAUSTED:
            return "RESOURCE_EXHAUSTED";
        case grpc::StatusCode::FAILED_PRECONDITION:
            return "FAILED_PRECONDITION";
        case grpc::StatusCode::UNIMPLEMENTED:
            return "UNIMPLEMENTED";
        case grpc::StatusCode::UNAVAILABLE:
            return "UNAVAILABLE";
        default:
            return "another code";
    }
}

platform::DeviceDescription stereoDevice() {
    platform::DeviceDescription device;
    device.manufacturer = QStringLiteral("Vesk");
    device.deviceName = QStringLiteral("Living room");
    device.productShortName = QStringLiteral("Xy");
    device.uuidNamespace = QStringLiteral("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    device.ethernetMac = QStringLiteral("aa:bb:cc:dd:ee:ff");
    device.speakers = {{QStringLiteral("Left"), 1, 0}, {QStringLiteral("Right"), 1, 0}};
    device.microphones = QStringList{QStringLiteral("Measurement")};
    device.numberOfSlots = 4;
    device.volumeMap = {-60.0, -30.0, 0.0};
    device.listenAddress = QStringLiteral("127.0.0.1");
    return device;
}

/// What an earlier test that was killed may have left.
void removeSegment() {
    const int id = shmget(kKey, 0, 0);
    if (id >= 0)
        shmctl(id, IPC_RMID, nullptr);
}

}  // namespace

std::string outcome(const grpc::Status& status) {
    if (status.ok())
        return "OK";
    return std::string(nameOf(status.error_code())) + " \"" + status.error_message() + "\"";
}

dio::endpoint::Index indexOf(int value) {
    dio::endpoint::Index index;
    index.set_value(value);
    return index;
}

dio::endpoint::Variant variantOf(int id) {
    dio::endpoint::Variant variant;
    variant.set_id(id);
    return variant;
}

dio::endpoint::CellIndex cellOf(unsigned section, unsigned input, unsigned output) {
    dio::endpoint::CellIndex cell;
    cell.set_section(section);
    cell.set_input_channel(input);
    cell.set_output_channel(output);
    return cell;
}

dio::endpoint::SlotInfo slotOf(int slot, const std::string& name, std::int64_t creationTime) {
    dio::endpoint::SlotInfo info;
    info.set_slot(slot);
    info.set_name(name);
    info.set_filter_type_name("Correction");
    info.set_description("For a test");
    info.set_creation_time(creationTime);
    return info;
}

VeskDiracSlot slotRecord(int slotIdx, const QString& name, qint64 creationTime) {
    VeskDiracSlot record;
    record.setSlotIdx(slotIdx);
    record.setName(name);
    record.setCreationTime(creationTime);
    return record;
}

VeskValue settingsOf(std::optional<int> active, const QList<VeskDiracSlot>& slotRecords) {
    QVariantList records;
    for (const VeskDiracSlot& record : slotRecords)
        records.append(QVariant(record));
    VeskDiracSlotsList list;
    list.setSlots_(records);
    if (active)
        list.setActiveSlot(*active);
    return VeskValue::of(list);
}

DeviceFixture::DeviceFixture()
    : description(stereoDevice()),
      previousDirectory_(std::filesystem::current_path()),
      log_(std::make_unique<LogCapture>("Dirac")) {
    std::filesystem::current_path(scratch_.path());
    description.stateDirectory = QString::fromStdString((scratch_.path() / "state").string());
    removeSegment();
}

DeviceFixture::~DeviceFixture() {
    stopDevice();
    std::filesystem::current_path(previousDirectory_);
}

// ---- Life ----

void DeviceFixture::startPlatform() {
    platform_ = std::make_unique<platform::Platform>(description);
}

void DeviceFixture::constructWorker(const std::function<void()>& then) {
    client_ = std::make_unique<CalibrationClient>();
    thread_ = std::make_unique<WorkerThread>();
    inWorkerThread([&] {
        worker_ = new Dirac({});
        then();
    });
}

void DeviceFixture::startDevice() {
    startPlatform();
    constructWorker();
    settle();
}

void DeviceFixture::stopDevice() {
    client_.reset();
    if (thread_) {
        inWorkerThread([this] { delete worker_; });
        worker_ = nullptr;
    }
    thread_.reset();
    platform_.reset();
}

void DeviceFixture::restartDevice() {
    stopDevice();
    startDevice();
}

void DeviceFixture::settle() {
    std::atomic<int> changes{0};
    const auto subscription =
        platform_->tree().subscribeAll([&changes](const platform::Change&) { ++changes; });
    int before = -1;
    // What a handler asks for takes up to four turns of the worker's event loop to show: a write to
    // the worker's own node, and the report of it.
    constexpr int kTurns = 4;
    while (before != changes) {
        before = changes;
        for (int turn = 0; turn < kTurns; ++turn)
            inWorkerThread([] {});
    }
}

void DeviceFixture::callSlot(const char* slot, const VeskValue& value) {
    inWorkerThread([&] {
        ASSERT_TRUE(QMetaObject::invokeMethod(worker_, slot, Qt::DirectConnection,
                                              Q_ARG(VeskValue, value)));
    });
}

// ---- Configuration tree ----

VeskValue DeviceFixture::valueAt(const CMPath& path) {
    return VeskValue(CMRoot()->getValue(path));
}

VeskDiracSlotsList DeviceFixture::settings() {
    return valueAt(VeskDiracSlotsSettingsPath()).diracSlotsList();
}

VeskDiracSlotsList DeviceFixture::runtimeSlots() {
    return valueAt(VeskDiracSlotsRuntimePath()).diracSlotsList();
}

std::vector<int> DeviceFixture::slotIndices(const VeskDiracSlotsList& list) {
    std::vector<int> indices;
    const QVariantList records = list.slots_();
    for (const QVariant& record : records)
        indices.push_back(VeskDiracSlot(record).slotIdx());
    return indices;
}

std::string DeviceFixture::write(const CMPath& path, const VeskValue& value) {
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->setValue(path, value, reply);
    EXPECT_TRUE(reply.waitForFinished(std::chrono::milliseconds(kPatience).count()));
    return reply.error().text().toStdString();
}

QVariant DeviceFixture::activateNode(const CMPath& path) {
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->invoke(path, VeskHash(), reply);
    EXPECT_TRUE(reply.waitForFinished(std::chrono::milliseconds(kPatience).count()));
    EXPECT_EQ(reply.error().text(), QString());
    return reply.value();
}

std::vector<std::string> DeviceFixture::menuRows() {
    std::vector<std::string> rows;
    const auto node = platform_->tree().info(VeskDiracFilterSettingsPath());
    for (const QVariant& row : node.value_or(platform::NodeInfo()).rows) {
        const VeskRoles roles(row);
        rows.push_back(roles.title().text().toStdString() + " = " +
                       std::to_string(roles.value().i32_()));
    }
    return rows;
}

int DeviceFixture::menuSelection() {
    return valueAt(VeskDiracActiveFilterPath()).i32_();
}

// ---- Calibration client ----

void DeviceFixture::transferFir(int slot, const std::string& name, const std::vector<float>& taps,
                                std::int64_t creationTime) {
    const auto speakers = static_cast<unsigned>(description.speakers.size());
    ask(&Stub::BeginFilterTransfer, slotOf(slot, name, creationTime));
    for (unsigned speaker = 0; speaker < speakers; ++speaker) {
        ask(&Stub::SetTransferCell, cellOf(5, speaker, speaker));
        for (unsigned variant = 0; variant < 2; ++variant) {
            dio::endpoint::FIIR fiir;
            fiir.mutable_info()->set_variant(variant);
            fiir.mutable_fir()->mutable_taps()->Add(taps.begin(), taps.end());
            ask(&Stub::SetCellFIIR, fiir);
        }
    }
    std::string result;
    endTransfer(slot, &result);
    EXPECT_EQ(result, "OK");
}

std::vector<float> DeviceFixture::endTransfer(int slot, std::string* result) {
    grpc::ClientContext context;
    CalibrationClient::limit(&context);
    const auto reader = stub().EndFilterTransfer(&context, indexOf(slot));
    std::vector<float> values;
    dio::endpoint::Progress progress;
    while (reader->Read(&progress))
        values.push_back(progress.value());
    *result = outcome(reader->Finish());
    return values;
}

void DeviceFixture::activate(int slot) {
    ask(&Stub::SetActiveSlot, indexOf(slot));
}

// ---- The DSP's segment ----

bool DeviceFixture::segmentExists() {
    return shmget(kKey, 0, 0) >= 0;
}

DiracConfiguration DeviceFixture::image() {
    SharedLock lock(kKey);
    const int id = shmget(kKey, 0, 0);
    const auto* const segment = static_cast<const DiracSegment*>(shmat(id, nullptr, SHM_RDONLY));
    EXPECT_TRUE(lock.lock());
    EXPECT_EQ(segment->magic, DiracSegment::kMagic);
    DiracConfiguration configuration = segment->configuration;
    lock.unlock();
    shmdt(segment);
    return configuration;
}

std::vector<float> DeviceFixture::segmentTaps(std::size_t channel, std::size_t count) {
    const DiracConfiguration configuration = image();
    const auto& taps = configuration.groups.at(0).at(channel).taps;
    return {taps.begin(), taps.begin() + static_cast<std::ptrdiff_t>(count)};
}

// ---- Log and files ----

bool DeviceFixture::logged(const std::string& line) const {
    return countLogged(line) > 0;
}

std::size_t DeviceFixture::countLogged(const std::string& line) const {
    const auto lines = log_->lines();
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}

bool DeviceFixture::logs(const std::string& line) const {
    return eventually([&] { return logged(line); });
}

std::vector<std::string> DeviceFixture::cacheFiles() const {
    std::vector<std::string> names;
    const auto cache = directory() / "data-rw" / "dirac";
    if (!std::filesystem::exists(cache))
        return names;
    for (const auto& file : std::filesystem::directory_iterator(cache))
        names.push_back(file.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}
