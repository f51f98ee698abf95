#pragma once

#include "sdk/dldsp/DiracConfiguration.h"
#include "support/CalibrationClient.h"
#include "support/ControlClient.h"
#include "support/DeviceProcess.h"
#include "support/Eventually.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

// Paths of the configuration tree.
inline constexpr const char* kSlotsSettings = "dirac/slots";
inline constexpr const char* kSlotsRuntime = "dirac/slotsRuntime";
inline constexpr const char* kMenu = "dirac/activeFilter";
inline constexpr const char* kMenuRows = "dirac/filterSettings";
inline constexpr const char* kCastActive = "talvor/castActive";

/// A test of a whole device through what it shows to the world: the calibration port, the control
/// socket, the segment and the command-line tools.
class DeviceTest : public testing::Test {
protected:
    ~DeviceTest() override;

    /// The device of the test; made from the options when first asked for.
    DeviceProcess& device();
    DeviceProcess::Options& options() { return options_; }

    void start();
    /// Ends the device in order and starts it again.
    void restart();

    CalibrationClient& client() { return *client_; }
    ControlClient& tree() { return *tree_; }

    /// Transfers a design and expects that the device takes it.
    void transfer(int slot, const FilterDesign& design, const std::string& name = "Design");
    /// Activates a slot and waits until its design is in the segment.
    void activate(int slot, const FilterDesign& design);

    /// The DSP's image; throws when there is none.
    std::unique_ptr<const DiracConfiguration> image() const;
    bool awaitDesign(const FilterDesign& design) const;
    bool awaitBypass() const;

    // The tools, run against the device of the test.
    ProcessResult calibrate(std::vector<std::string> arguments) const;
    ProcessResult treeTool(std::vector<std::string> arguments);
    ProcessResult segmentTool(std::vector<std::string> arguments) const;

    /// Whether a new client is answered: the device goes on.
    static bool deviceAnswers();

private:
    DeviceProcess::Options options_;
    std::unique_ptr<DeviceProcess> device_;
    std::unique_ptr<CalibrationClient> client_;
    std::unique_ptr<ControlClient> tree_;
};
