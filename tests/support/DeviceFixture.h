#pragma once

#include "modules/dirac/Dirac.h"
#include "platform/DeviceDescription.h"
#include "platform/Platform.h"
#include "platform/cm/Tree.h"
#include "sdk/cm/CMPath.h"
#include "sdk/dldsp/DiracConfiguration.h"
#include "sdk/records/VeskValue.h"
#include "support/CalibrationClient.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ScratchDirectory.h"
#include "support/WorkerThread.h"

#include <QList>
#include <QStringList>
#include <endpoint.grpc.pb.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using Stub = dio::endpoint::EndpointDevice::Stub;

/// "OK", or the status code and the text: INVALID_ARGUMENT "Index out of bounds"
std::string outcome(const grpc::Status& status);

// Requests.
dio::endpoint::Index indexOf(int value);
dio::endpoint::Variant variantOf(int id);
dio::endpoint::CellIndex cellOf(unsigned section, unsigned input, unsigned output);
dio::endpoint::SlotInfo slotOf(int slot, const std::string& name, std::int64_t creationTime = 0);

/// A stored slot without a design.
VeskDiracSlot slotRecord(int slotIdx, const QString& name, qint64 creationTime = 0);
/// Slots settings; without `active` the list has no active-slot key.
VeskValue settingsOf(std::optional<int> active, const QList<VeskDiracSlot>& slotRecords);

/// A whole device in this process: the reference platform, the worker in a thread of its own, and a
/// client at the calibration port. Each test starts without settings, cached files and segment, in
/// a directory of its own.
///
/// The module's port and key are fixed, so tests with this fixture need the lock "vesk-device".
class DeviceFixture : public testing::Test {
protected:
    DeviceFixture();
    ~DeviceFixture() override;

    /// What the device will be: two speakers, one microphone, four slots. Change it before start.
    platform::DeviceDescription description;

    // ---- Life ----

    void startPlatform();
    /// Constructs the worker in its thread; `then` runs there before any event.
    void constructWorker(const std::function<void()>& then = [] {});
    /// All of it, until the calibration server has been started.
    void startDevice();
    void stopDevice();
    /// The settings stay.
    void restartDevice();
    /// Until nothing that has been asked for is on its way through the tree any more.
    void settle();

    platform::Platform& platform() { return *platform_; }
    Dirac& worker() { return *worker_; }
    void inWorkerThread(const std::function<void()>& task) { thread_->run(task); }
    /// Calls one of the worker's slots, by name, as if its path had changed.
    void callSlot(const char* slot, const VeskValue& value);

    // ---- Configuration tree ----

    static VeskValue valueAt(const CMPath& path);
    static VeskDiracSlotsList settings();
    static VeskDiracSlotsList runtimeSlots();
    static std::vector<int> slotIndices(const VeskDiracSlotsList& list);
    /// Waits for the answer; returns the error's text, empty when it was accepted.
    static std::string write(const CMPath& path, const VeskValue& value);
    /// The answer to an activation, waited for.
    static QVariant activateNode(const CMPath& path);
    /// Titles of the menu's rows, with the slot index of each: "Filter: Sofa = 2".
    std::vector<std::string> menuRows();
    static int menuSelection();

    // ---- Calibration client ----

    Stub& stub() { return client_->stub(); }

    template <typename Request, typename Reply>
    grpc::Status call(grpc::Status (Stub::*method)(grpc::ClientContext*, const Request&, Reply*),
                      const Request& request, Reply* reply) {
        grpc::ClientContext context;
        CalibrationClient::limit(&context);
        return (stub().*method)(&context, request, reply);
    }

    /// The reply of a call that must succeed.
    template <typename Request, typename Reply>
    Reply ask(grpc::Status (Stub::*method)(grpc::ClientContext*, const Request&, Reply*),
              const Request& request) {
        Reply reply;
        EXPECT_EQ(outcome(call(method, request, &reply)), "OK");
        return reply;
    }

    /// The outcome of a call whose reply does not matter.
    template <typename Request, typename Reply>
    std::string outcomeOf(grpc::Status (Stub::*method)(grpc::ClientContext*, const Request&,
                                                       Reply*),
                          const Request& request) {
        Reply reply;
        return outcome(call(method, request, &reply));
    }

    /// A whole transfer of a FIR for each speaker and both variants, of `taps`.
    void transferFir(int slot, const std::string& name, const std::vector<float>& taps,
                     std::int64_t creationTime = 1);
    /// The progress messages and how the stream ended.
    std::vector<float> endTransfer(int slot, std::string* result);
    void activate(int slot);

    // ---- The DSP's segment ----

    static bool segmentExists();
    static DiracConfiguration image();
    /// The first taps of a channel of the 48 kHz variant.
    static std::vector<float> segmentTaps(std::size_t channel, std::size_t count);

    // ---- Log and files ----

    LogCapture& log() { return *log_; }
    bool logged(const std::string& line) const;
    std::size_t countLogged(const std::string& line) const;
    /// Waits for a line.
    bool logs(const std::string& line) const;
    std::vector<std::string> cacheFiles() const;
    const std::filesystem::path& directory() const { return scratch_.path(); }

private:
    const std::filesystem::path previousDirectory_;
    const ScratchDirectory scratch_;
    const std::unique_ptr<LogCapture> log_;
    std::unique_ptr<platform::Platform> platform_;
    std::unique_ptr<WorkerThread> thread_;
    Dirac* worker_{nullptr};  // lives in thread_
    std::unique_ptr<CalibrationClient> client_;
};
