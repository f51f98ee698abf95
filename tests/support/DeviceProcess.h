#pragma once

#include "support/BackgroundProcess.h"
#include "support/ScratchDirectory.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

/// A whole device: veskd with the module, as a process on loopback with a state directory of its
/// own. It can be stopped, killed and started again over the same state.
///
/// The calibration port and the key of the segment are fixed, so only one device at a time can have
/// them; see isolateFromMachine().
class DeviceProcess {
public:
    static constexpr std::chrono::seconds kPatience{30};

    struct Options {
        std::string description{"stereo"};  ///< name of a ready-made one, or a path
        std::string logLevel{"DEBUG"};
        std::filesystem::path stateDirectory;  ///< empty: below a scratch directory
        std::vector<std::string> wrapper;      ///< command that executes the device's, e.g. prlimit
        std::vector<std::string> arguments;    ///< more for veskd
    };

    DeviceProcess();
    explicit DeviceProcess(const Options& options);
    /// Kills a device that still runs.
    ~DeviceProcess();

    /// Starts the device and waits until its calibration port answers. Throws std::runtime_error
    /// with the log when it ends or stays silent instead.
    void start();
    /// Starts it and waits for nothing.
    void launch();

    /// Asks the device to end and waits for it. Throws std::runtime_error when it does not.
    ProcessEnd stop();
    /// Ends it on the spot, as a power failure would.
    void kill();
    bool isRunning();

    /// The device's process; only while it has been started and not been ended.
    BackgroundProcess& process() { return *process_; }

    /// What the device wrote since it was last started.
    std::string log() const;
    /// Waits until the log has the text. False when the time runs out or the device ends before.
    bool awaitLog(const std::string& text, std::chrono::milliseconds timeout = kPatience);

    const std::filesystem::path& stateDirectory() const { return stateDirectory_; }
    std::filesystem::path controlSocket() const { return stateDirectory_ / "control.sock"; }

private:
    std::vector<std::string> command() const;
    std::filesystem::path logFile() const;
    void awaitPort();

    const ScratchDirectory scratch_;
    const Options options_;
    const std::filesystem::path stateDirectory_;
    std::unique_ptr<BackgroundProcess> process_;
};

/// The whole file; empty when it cannot be read.
std::string readFile(const std::filesystem::path& file);
