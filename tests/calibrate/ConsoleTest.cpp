#include "calibrate/Console.h"
#include "calibrate/Errors.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <sstream>

namespace calibrate {
namespace {

/// A stream that stops the command as soon as it is flushed, which a question is.
class StoppingBuffer : public std::stringbuf {
public:
    explicit StoppingBuffer(std::stop_source& stop) : stop_(stop) {}

private:
    int sync() override {
        stop_.request_stop();
        return 0;
    }

    std::stop_source& stop_;
};

class ConsoleTest : public testing::Test {
protected:
    ConsoleTest() { EXPECT_EQ(pipe(ends_), 0); }
    ~ConsoleTest() override {
        close(ends_[0]);
        close(ends_[1]);
    }

    Environment environment(std::ostream& err) {
        return {out_, err, ends_[0], true, false, 80, stop_.get_token()};
    }

    int ends_[2]{};
    std::ostringstream out_;
    std::stop_source stop_;
};

TEST_F(ConsoleTest, AQuestionThatIsNotAnsweredCanBeInterrupted) {
    StoppingBuffer buffer(stop_);
    std::ostream err(&buffer);
    const auto terminal = environment(err);

    EXPECT_THROW(Console(terminal, false, false).confirm("Sure?"), Interrupted);
    EXPECT_EQ(buffer.str(), "Sure? [y/N] ");
}

TEST_F(ConsoleTest, OneLineIsTheAnswer) {
    ASSERT_EQ(write(ends_[1], "y\nmore", 6), 6);
    std::ostringstream err;
    const auto terminal = environment(err);

    EXPECT_TRUE(Console(terminal, false, false).confirm("Sure?"));
}

TEST_F(ConsoleTest, ATerminalThatEndsSaysNo) {
    close(ends_[1]);
    std::ostringstream err;
    const auto terminal = environment(err);

    EXPECT_FALSE(Console(terminal, false, false).confirm("Sure?"));
    ends_[1] = dup(ends_[0]);
}

TEST_F(ConsoleTest, ABarIsDrawnOnATerminalOnly) {
    std::ostringstream err;
    auto terminal = environment(err);
    terminal.errIsTerminal = true;
    Console(terminal, false, false).progressBar().update(0.5, "half");
    EXPECT_EQ(err.str().front(), '\r');

    err.str("");
    Console(terminal, false, true).progressBar().update(0.5, "half");
    EXPECT_EQ(err.str(), "");
}

}  // namespace
}  // namespace calibrate
