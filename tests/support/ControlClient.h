#pragma once

#include <control.grpc.pb.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

/// A look at, and a hand on, the configuration tree of a running device. Each call has 10 s to be
/// answered; what goes wrong throws std::runtime_error, except where a status is returned.
class ControlClient {
public:
    explicit ControlClient(const std::filesystem::path& socket);

    vesk::control::Node node(const std::string& path);
    /// The node's value as JSON.
    nlohmann::json value(const std::string& path);
    /// Titles of the rows at the path, in order.
    std::vector<std::string> rowTitles(const std::string& path);

    /// Answers when the node has taken the value or refused it.
    grpc::Status set(const std::string& path, const nlohmann::json& value);

    /// Whether no value below `prefixes` (none: in the whole tree) changes for so long.
    bool isQuietFor(std::chrono::milliseconds duration,
                    const std::vector<std::string>& prefixes = {});

private:
    const std::unique_ptr<vesk::control::Control::Stub> stub_;
};
