// kill -9 of the device at random moments while a client transfers designs and another one asks
// questions. What the first may rely on: once EndFilterTransfer has answered OK, the slot outlives
// the device's death, whole. A transfer that was cut off has replaced its slot completely or not at
// all.
//
// VESK_CRASH_ROUNDS and VESK_CRASH_SEED set how often, and repeat a run; scripts/crash-test kills
// 200 times.

#include "system/DeviceTest.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdlib>
#include <map>
#include <random>
#include <thread>

namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr int kSlots = 8;
constexpr int kTransfersPerKill = 4;
constexpr DesignSize kSize{2, 500, 10, false};

std::uint32_t numberFromEnvironment(const char* name, std::uint32_t otherwise) {
    const char* const text = std::getenv(name);
    return text ? static_cast<std::uint32_t>(std::stoul(text)) : otherwise;
}

/// What a slot may hold, by the seed of its design.
struct Expectation {
    std::optional<std::uint32_t> acknowledged;
    std::optional<std::uint32_t> begun;  ///< a transfer that was not acknowledged
};

json tapsOf(const dio::endpoint::FIIR& fiir) {
    json taps = json::array();
    for (const float tap : fiir.fir().taps())
        taps.push_back(static_cast<double>(tap));
    return taps;
}

bool holdsFiir(const json& channel, const dio::endpoint::FIIR& fiir) {
    const json& stored = channel.at("fiir");
    return stored.at("taps") == tapsOf(fiir) &&
           stored.at("biquads").size() == static_cast<std::size_t>(fiir.iir().biquads_size());
}

/// Whether a slot's record, as the tree shows it, holds the design made from `seed`.
bool isWhole(const json& record, std::uint32_t seed) {
    if (record.at("creationTime") != seed || !record.contains("params"))
        return false;
    const json& params = record.at("params");
    for (const CellDesign& cell : makeDesign(kSize, seed))
        for (const auto& fiir : cell.fiirs)
            if (!holdsFiir(params.at(fiir.info().variant()).at(cell.cell.input_channel()), fiir))
                return false;
    return true;
}

/// The database as the kill left it, looked at in a copy so that nothing is repaired.
std::string integrityOf(const std::filesystem::path& stateDirectory) {
    const ScratchDirectory copy;
    for (const char* name : {"settings.sqlite", "settings.sqlite-wal"})
        if (exists(stateDirectory / name))
            copy_file(stateDirectory / name, copy.path() / name);
    if (!exists(copy.path() / "settings.sqlite"))
        return "ok";
    SQLite::Database database((copy.path() / "settings.sqlite").string(), SQLite::OPEN_READWRITE);
    return database.execAndGet("PRAGMA integrity_check").getString();
}

class CrashTest : public DeviceTest {
protected:
    /// A new design into a random slot. False: the device is gone.
    bool transferNext() {
        const int slot = static_cast<int>(random() % kSlots);
        const std::uint32_t seed = ++lastSeed;
        Expectation& expectation = expectations[slot];
        expectation.begun = seed;
        const auto info = makeSlot(slot, "Design " + std::to_string(seed), seed);
        if (!client().transfer(info, makeDesign(kSize, seed)).ok())
            return false;
        expectation = {seed, std::nullopt};
        ++acknowledgements;
        return true;
    }

    /// How long a transfer takes on this machine, as it is loaded now.
    std::chrono::microseconds timeTransfer() {
        const auto begin = Clock::now();
        EXPECT_TRUE(transferNext());
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
    }

    /// Another client, whose calls only read.
    static void askUntilGone() {
        CalibrationClient reader;
        for (grpc::Status status; status.ok();) {
            grpc::ClientContext context;
            dio::endpoint::DeviceInfo info;
            status = reader.stub().GetDeviceInfo(&context, {}, &info);
        }
    }

    /// Within the time of the next few transfers.
    void killDuringTransfers() {
        const auto range = static_cast<std::uint32_t>(kTransfersPerKill * timeTransfer().count());
        const std::chrono::microseconds delay(random() % range);
        std::thread transfers([this] {
            while (transferNext()) {
            }
        });
        std::thread questions(askUntilGone);
        std::this_thread::sleep_for(delay);
        device().process().signal(SIGKILL);
        transfers.join();
        questions.join();
        device().kill();
    }

    void expectEverySlotWhole() {
        const json settings = tree().value(kSlotsSettings);
        std::map<int, json> records;
        for (const json& record : settings.at("slots_"))
            records[record.at("slotIdx")] = record;
        for (auto& [slot, expectation] : expectations)
            expectWhole(slot, expectation, records.contains(slot) ? &records[slot] : nullptr);
    }

    void expectWhole(int slot, Expectation& expectation, const json* record) {
        SCOPED_TRACE("slot " + std::to_string(slot));
        const auto holds = [&](const std::optional<std::uint32_t>& seed) {
            return seed && record && isWhole(*record, *seed);
        };
        if (holds(expectation.begun))
            expectation.acknowledged = expectation.begun;
        else if (expectation.acknowledged)
            EXPECT_TRUE(holds(expectation.acknowledged))
                << "lost; found " << (record ? record->at("name").dump() : "nothing");
        else
            EXPECT_EQ(record, nullptr) << "half a transfer: " << record->at("name");
        expectation.begun.reset();
    }

    std::mt19937 random;
    std::uint32_t lastSeed{0};
    std::uint32_t acknowledgements{0};
    std::map<int, Expectation> expectations;
};

TEST_F(CrashTest, everyAcknowledgedSlotIsWholeAfterAKillAtAnyMoment) {
    const std::uint32_t seed = numberFromEnvironment("VESK_CRASH_SEED", std::random_device()());
    const std::uint32_t rounds = numberFromEnvironment("VESK_CRASH_ROUNDS", 25);
    std::cout << "VESK_CRASH_SEED=" << seed << " VESK_CRASH_ROUNDS=" << rounds << std::endl;
    random.seed(seed);

    start();
    for (std::uint32_t round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        killDuringTransfers();
        EXPECT_EQ(integrityOf(device().stateDirectory()), "ok");
        start();
        expectEverySlotWhole();
        EXPECT_EQ(device().log().find("are damaged"), std::string::npos);
    }
    std::cout << acknowledgements << " acknowledged transfers" << std::endl;
}

}  // namespace
