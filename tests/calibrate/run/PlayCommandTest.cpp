#include "calibrate/Errors.h"
#include "calibrate/run/PlayCommand.h"
#include "support/Eventually.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fstream>

namespace calibrate::run {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class PlayCommandTest : public testing::Test {
protected:
    std::filesystem::path file() const { return scratch_.path() / "sound.wav"; }

    /// The process whose number the command has written to $FILE; -1: none.
    pid_t startedProcess() const {
        pid_t process = -1;
        std::ifstream(file()) >> process;
        return process;
    }

    bool awaitStart() const {
        return eventually([this] { return startedProcess() > 0; });
    }

    static bool hasEnded(pid_t process) {
        return eventually([process] { return kill(process, 0) != 0; });
    }

private:
    const ScratchDirectory scratch_;
};

TEST_F(PlayCommandTest, FindsTheFileInItsEnvironment) {
    PlayCommand command("echo $$ > \"$FILE\"", file());
    EXPECT_TRUE(awaitStart());
}

TEST_F(PlayCommandTest, AFailureIsTold) {
    PlayCommand command("exit 3", file());
    EXPECT_TRUE(eventually([&] {
        try {
            command.check();
            return false;
        } catch (const OutputError& error) {
            return std::string(error.what()).find("\"exit 3\" failed") != std::string::npos;
        }
    }));
}

TEST_F(PlayCommandTest, ACommandThatDoesNotWantToEndIsEnded) {
    const auto begin = Clock::now();
    {
        const PlayCommand command("trap '' TERM; echo $$ > \"$FILE\"; while true; do sleep 1; done",
                                  file());
        ASSERT_TRUE(awaitStart());
    }
    EXPECT_TRUE(hasEnded(startedProcess()));
    EXPECT_LT(Clock::now() - begin, 20s);
}

TEST_F(PlayCommandTest, WhatItHasLeftInTheBackgroundIsEnded) {
    {
        PlayCommand command("sleep 600 & echo $! > \"$FILE\"", file());
        ASSERT_TRUE(awaitStart());
    }
    EXPECT_TRUE(hasEnded(startedProcess()));
}

}  // namespace
}  // namespace calibrate::run
