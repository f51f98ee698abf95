#pragma once

#include "platform/cm/Tree.h"

#include <control.grpc.pb.h>

#include <atomic>
#include <string>

namespace host {

/// Answers the control protocol from a tree, which must outlive the service. Its calls run in the
/// server's threads, several at once.
class ControlService final : public vesk::control::Control::Service {
public:
    explicit ControlService(platform::Tree& tree) : tree_(tree) {}

    /// Ends watches and waits for answers within a moment; calls that come later end at once.
    void stop() { stopping_ = true; }

    grpc::Status List(grpc::ServerContext* context, const vesk::control::ListRequest* request,
                      vesk::control::ListReply* reply) override;
    grpc::Status Get(grpc::ServerContext* context, const vesk::control::GetRequest* request,
                     vesk::control::Node* reply) override;
    grpc::Status Set(grpc::ServerContext* context, const vesk::control::SetRequest* request,
                     vesk::control::SetReply* reply) override;
    grpc::Status Watch(grpc::ServerContext* context, const vesk::control::WatchRequest* request,
                       grpc::ServerWriter<vesk::control::Node>* writer) override;
    grpc::Status Invoke(grpc::ServerContext* context, const vesk::control::InvokeRequest* request,
                        vesk::control::InvokeReply* reply) override;

private:
    VeskValue valueFor(const platform::NodeInfo& node,
                       const vesk::control::SetRequest& request) const;
    VeskValue choiceTitled(const CMPath& choices, const std::string& title) const;
    grpc::Status await(grpc::ServerContext* context, const CMReply<QVariant>& answer,
                       const std::string& path) const;
    bool writePresent(const vesk::control::WatchRequest& request,
                      grpc::ServerWriter<vesk::control::Node>* writer) const;
    bool hasEnded(grpc::ServerContext* context) const;

    platform::Tree& tree_;
    std::atomic<bool> stopping_{false};
    std::atomic<int> watchers_{0};
};

}  // namespace host
