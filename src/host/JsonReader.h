#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

/// Why a document cannot be used, on one line: file, place (a JSON pointer) and what was expected
/// there.
class DescriptionError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One value of a JSON document and its place in it. Each accessor returns the value as what was
/// asked for, or throws DescriptionError. Refers to the document, which must outlive it.
class JsonReader {
public:
    JsonReader(const nlohmann::json& value, std::string file, std::string pointer);

    std::string text() const;
    std::string nonEmptyText() const;
    bool boolean() const;
    double number() const;
    std::int64_t integer(std::int64_t minimum, std::int64_t maximum) const;
    std::vector<JsonReader> list(std::size_t minimumLength, std::size_t maximumLength) const;

    /// The value is not what the device needs.
    [[noreturn]] void refuse(const std::string& expected) const;

private:
    friend class JsonObjectReader;

    [[noreturn]] void fail(const std::string& what) const;

    const nlohmann::json* value_;
    std::string file_;
    std::string pointer_;
};

/// An object of a document, read key by key.
class JsonObjectReader {
public:
    explicit JsonObjectReader(const JsonReader& object);

    JsonReader required(const std::string& key);
    std::optional<JsonReader> optional(const std::string& key);

    /// Refuses every key that nobody has asked for: it would be a mistyped one.
    void finish() const;

private:
    JsonReader at(const std::string& key) const;

    const JsonReader object_;
    std::set<std::string> known_;
};

/// Parses a file; an object that has a key twice is refused. Throws DescriptionError.
nlohmann::json parseJsonFile(const std::string& file);

}  // namespace host
