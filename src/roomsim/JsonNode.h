#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace roomsim {

/// A value in a JSON file that knows its place, so that each complaint names the file and the key.
/// The accessors throw RoomError on a missing or ill-typed value. Refers to the parsed document.
class JsonNode {
public:
    JsonNode(const std::filesystem::path& file, const nlohmann::json& value, std::string key)
        : file_(file), value_(value), key_(std::move(key)) {}

    [[noreturn]] void fail(const std::string& reason) const;

    /// Fails when the object has a key that is not in `known`, or is none.
    void expectKeys(const std::set<std::string>& known) const;

    [[nodiscard]] bool has(const std::string& name) const { return value_.contains(name); }
    [[nodiscard]] JsonNode at(const std::string& name) const;
    [[nodiscard]] std::optional<JsonNode> find(const std::string& name) const;

    [[nodiscard]] bool isArray() const { return value_.is_array(); }
    [[nodiscard]] bool isObject() const { return value_.is_object(); }
    [[nodiscard]] bool isNumber() const { return value_.is_number(); }
    [[nodiscard]] std::vector<JsonNode> elements() const;

    [[nodiscard]] std::string text() const;
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] std::uint64_t count() const;

    /// A number in [lowest, highest].
    [[nodiscard]] double number(double lowest, double highest) const;
    [[nodiscard]] double numberOr(const std::string& name, double otherwise, double lowest,
                                  double highest) const;

private:
    const std::filesystem::path& file_;
    const nlohmann::json& value_;
    std::string key_;  ///< as in "microphones[1].position", empty for the whole document
};

}  // namespace roomsim
