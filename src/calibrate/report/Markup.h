#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace calibrate::report {

/// A piece of a page, well-formed both as HTML and as XML. Texts become markup only by text() and
/// as attributes' values, which escape them: what came from the network cannot add elements.
class Markup {
public:
    Markup() = default;

    /// The text as it is read; control characters and what is not UTF-8 become "?".
    static Markup text(std::string_view text);

    /// Markup written in this program.
    static Markup raw(std::string markup);

    Markup& operator+=(const Markup& next);
    friend Markup operator+(Markup first, const Markup& next) { return first += next; }

    const std::string& string() const { return markup_; }
    bool empty() const { return markup_.empty(); }

private:
    std::string markup_;
};

using Attributes = std::vector<std::pair<std::string_view, std::string>>;

/// <name attributes>content</name>
Markup element(std::string_view name, const Attributes& attributes, const Markup& content);

/// The same around a text.
Markup element(std::string_view name, const Attributes& attributes, std::string_view text);

/// <name attributes/>, for the elements of HTML that are always empty, and those of SVG.
Markup emptyElement(std::string_view name, const Attributes& attributes);

}  // namespace calibrate::report
