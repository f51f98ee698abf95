#include "calibrate/report/WellFormed.h"

#include <regex>
#include <set>
#include <vector>

namespace {

class Checker {
public:
    explicit Checker(const std::string& page) : page_(page) {}

    std::string check() {
        while (error_.empty() && position_ < page_.size())
            page_[position_] == '<' ? tag() : text();
        if (error_.empty() && !open_.empty())
            error_ = "<" + open_.back() + "> is not closed";
        return error_;
    }

private:
    void fail(const std::string& what) {
        error_ = what + " at \"" + page_.substr(position_, 60) + "\"";
    }

    void text() {
        const auto end = std::min(page_.find('<', position_), page_.size());
        checkEntities(page_.substr(position_, end - position_));
        position_ = end;
    }

    void checkEntities(const std::string& text) {
        static const std::regex kEntity("&(amp|lt|gt|quot|#39);");
        const auto rest = std::regex_replace(text, kEntity, "");
        if (rest.find('&') != std::string::npos)
            fail("stray &");
    }

    void tag() {
        if (page_.compare(position_, 9, "<!DOCTYPE") == 0) {
            position_ = page_.find('>', position_) + 1;
            return;
        }
        // The expression engine's recursion does not like whole pages.
        const auto end = page_.find('>', position_);
        const std::string tag = page_.substr(position_, end - position_ + 1);
        static const std::regex kTag(
            R"(<(/?)([a-z][a-z0-9]*)((?: [A-Za-z][A-Za-z0-9-]*="[^"<>]*")*)(/?)>)");
        std::smatch match;
        if (tag.size() > kLongest ? !longTag(tag) : !std::regex_match(tag, match, kTag))
            return fail("no tag");
        if (tag.size() <= kLongest)
            take(match[1].length() > 0, match[2], match[3], match[4].length() > 0);
        position_ = end + 1;
    }

    /// A path with much data.
    static bool longTag(const std::string& tag) {
        return tag.compare(0, 6, "<path ") == 0 && tag.compare(tag.size() - 3, 3, "\"/>") == 0;
    }

    void take(bool closing, const std::string& name, const std::string& attributes, bool empty) {
        if (closing)
            return close(name);
        checkAttributes(attributes);
        if (!empty)
            open_.push_back(name);
    }

    void close(const std::string& name) {
        if (open_.empty() || open_.back() != name)
            return fail("not open: " + name);
        open_.pop_back();
    }

    void checkAttributes(const std::string& attributes) {
        static const std::regex kAttribute(" ([A-Za-z][A-Za-z0-9-]*)=\"([^\"]*)\"");
        std::set<std::string> names;
        for (std::sregex_iterator i(attributes.begin(), attributes.end(), kAttribute), end;
             i != end; ++i) {
            if (!names.insert((*i)[1]).second)
                fail("twice: " + (*i)[1].str());
            if ((*i)[1] == "id" && !identifiers_.insert((*i)[2]).second)
                fail("identifier twice: " + (*i)[2].str());
            checkEntities((*i)[2]);
        }
    }

    static constexpr std::size_t kLongest = 1'000;

    const std::string& page_;
    std::size_t position_{0};
    std::vector<std::string> open_;
    std::set<std::string> identifiers_;
    std::string error_;
};

}  // namespace

std::string whatIsMalformed(const std::string& page) {
    return Checker(page).check();
}
