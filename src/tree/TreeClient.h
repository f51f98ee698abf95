#pragma once

#include <control.pb.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tree {

/// A device's configuration tree through its control socket. Every call throws RefusedError with
/// the device's words, or UnreachableError.
class TreeClient {
public:
    /// Connects with the first call.
    explicit TreeClient(const std::string& socketPath);
    ~TreeClient();
    TreeClient(const TreeClient&) = delete;
    TreeClient& operator=(const TreeClient&) = delete;

    std::vector<vesk::control::Node> list(const std::string& prefix);
    vesk::control::Node get(const std::string& path);
    void set(const std::string& path, const std::string& text, const std::string& type);
    /// The action's answer, JSON.
    std::string invoke(const std::string& path, const std::string& arguments);

    /// Calls `onChange` for each change until that returns false.
    void watch(const std::vector<std::string>& prefixes, bool present,
               const std::function<bool(const vesk::control::Node&)>& onChange);

private:
    class Private;
    const std::unique_ptr<Private> private_;
};

}  // namespace tree
