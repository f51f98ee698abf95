#include "calibrate/support/CommandFixture.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>

#include <regex>
#include <set>

// What the shells offer, against what the program itself lists.

namespace calibrate {
namespace {

namespace fs = std::filesystem;
using Words = std::set<std::string>;

constexpr const char* kBash = "/bin/bash";
constexpr const char* kZsh = "/bin/zsh";

/// Each match of the first group of `pattern` in a line.
Words matches(const std::string& text, const std::string& pattern) {
    Words words;
    const std::regex regex(pattern);
    std::istringstream lines(text);
    std::smatch match;
    for (std::string line; std::getline(lines, line);)
        if (std::regex_search(line, match, regex))
            words.insert(match[1]);
    return words;
}

class CompletionTest : public CommandFixture {
protected:
    std::string help(const std::vector<std::string>& words) {
        auto arguments = words;
        arguments.push_back("--help");
        runBare(arguments);
        return output();
    }

    Words verbs() {
        const std::string text = help({});
        return matches(text.substr(text.find("Subcommands:")), "^ {2}([a-z]+) ");
    }

    /// The options that may stand behind a verb; none: those before it.
    Words options(const std::string& verb) {
        const std::string kOption = "^ {1,6}(?:-\\w,)?(--[a-z-]+)";
        auto all = matches(help({}), kOption);
        if (verb.empty())
            return all;
        all.erase("--version");
        all.merge(matches(help({verb}), kOption));
        return all;
    }

    static std::string answerOf(const std::string& shell, const std::string& script) {
        const auto result = runProcess({shell, "-c", script});
        EXPECT_EQ(result.errors, "") << script;
        return result.output;
    }

    /// What bash offers for the last of these words.
    static Words bashOffers(const std::string& words, int last) {
        return matches(answerOf(kBash, "source " VESK_COMPLETIONS
                                       "/vesk-calibrate.bash; COMP_WORDS=(vesk-calibrate " +
                                           words + "); COMP_CWORD=" + std::to_string(last) +
                                           "; _vesk_calibrate; printf '%s\\n' \"${COMPREPLY[@]}\""),
                       "^(.+)$");
    }

    /// What zsh's own functions are told to offer, when `call` is made.
    static std::string zshSpecifications(const std::string& call) {
        return answerOf(kZsh,
                        "_arguments() { print -rl -- \"$@\" }; "
                        "_describe() { print -rl -- ${(P)4} }; "
                        "source " VESK_COMPLETIONS "/_vesk-calibrate >/dev/null; " +
                            call);
    }

    static Words zshOptions(const std::string& call) {
        return matches(zshSpecifications(call), "^(?:\\([^)]*\\))?\\*?(--[a-z-]+)");
    }
};

TEST_F(CompletionTest, BashOffersEveryVerb) {
    auto expected = verbs();
    ASSERT_GT(expected.size(), 10U);
    expected.merge(options(""));
    EXPECT_EQ(bashOffers("''", 1), expected);
}

TEST_F(CompletionTest, BashOffersTheOptionsOfEachVerb) {
    for (const auto& verb : verbs())
        EXPECT_EQ(bashOffers(verb + " --", 2), options(verb)) << verb;
}

TEST_F(CompletionTest, ZshOffersEveryVerb) {
    if (!fs::exists(kZsh))
        GTEST_SKIP() << "zsh is not installed";
    EXPECT_EQ(matches(zshSpecifications("_vesk_calibrate_verbs"), "^([a-z]+):"), verbs());
    EXPECT_EQ(zshOptions("_vesk_calibrate"), options(""));
}

TEST_F(CompletionTest, ZshOffersTheOptionsOfEachVerb) {
    if (!fs::exists(kZsh))
        GTEST_SKIP() << "zsh is not installed";
    for (const auto& verb : verbs())
        EXPECT_EQ(zshOptions("_vesk_calibrate_arguments " + verb), options(verb)) << verb;
}

}  // namespace
}  // namespace calibrate
