#include "calibrate/report/Markup.h"

#include "calibrate/Text.h"

namespace calibrate::report {
namespace {

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : printable(text)) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string opening(std::string_view name, const Attributes& attributes) {
    std::string result = "<" + std::string(name);
    for (const auto& [key, value] : attributes)
        result += " " + std::string(key) + "=\"" + escaped(value) + "\"";
    return result;
}

}  // namespace

Markup Markup::text(std::string_view text) {
    return raw(escaped(text));
}

Markup Markup::raw(std::string markup) {
    Markup result;
    result.markup_ = std::move(markup);
    return result;
}

Markup& Markup::operator+=(const Markup& next) {
    markup_ += next.markup_;
    return *this;
}

Markup element(std::string_view name, const Attributes& attributes, const Markup& content) {
    return Markup::raw(opening(name, attributes) + ">" + content.string() + "</" +
                       std::string(name) + ">");
}

Markup element(std::string_view name, const Attributes& attributes, std::string_view text) {
    return element(name, attributes, Markup::text(text));
}

Markup emptyElement(std::string_view name, const Attributes& attributes) {
    return Markup::raw(opening(name, attributes) + "/>");
}

}  // namespace calibrate::report
