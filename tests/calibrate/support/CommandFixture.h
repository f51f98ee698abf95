#pragma once

#include "calibrate/support/EndpointDouble.h"
#include "calibrate/support/SoundFiles.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <stop_token>
#include <string>
#include <vector>

/// A device, a directory for files, and the command that is run against them.
class CommandFixture : public testing::Test {
protected:
    /// Runs the command with --device before `arguments`. Returns the exit code.
    int run(const std::vector<std::string>& arguments);

    /// The same without --device.
    int runBare(const std::vector<std::string>& arguments);

    /// What the last run wrote.
    std::string output() const { return out_.str(); }
    std::string errors() const { return err_.str(); }

    /// Writes a float WAV file with these channels; returns its path.
    std::string wav(const std::string& name, int sampleRate, const Samples& channels) const;
    std::string path(const std::string& name) const { return (scratch_.path() / name).string(); }

    /// Gives the command a terminal on which `answer` is typed.
    void answerWith(const std::string& answer) { answer_ = answer; }

    EndpointDouble device_;
    std::stop_source stop_;

private:
    ScratchDirectory scratch_;
    std::ostringstream out_;
    std::ostringstream err_;
    std::optional<std::string> answer_;
};
