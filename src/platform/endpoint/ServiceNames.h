#pragma once

#include <grpcpp/impl/server_builder_option.h>

#include <memory>
#include <string>
#include <vector>

namespace platform {

/// Tells the full names of the services that a gRPC server offers; they are known once it is built.
class ServiceNames : public grpc::ServerBuilderOption {
public:
    /// `names` is filled when the server is built and must live until then.
    explicit ServiceNames(std::vector<std::string>& names) : names_(names) {}

    void UpdateArguments(grpc::ChannelArguments* /*arguments*/) override {}
    void UpdatePlugins(std::vector<std::unique_ptr<grpc::ServerBuilderPlugin>>* plugins) override;

private:
    std::vector<std::string>& names_;
};

}  // namespace platform
