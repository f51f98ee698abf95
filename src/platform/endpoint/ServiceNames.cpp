#include "platform/endpoint/ServiceNames.h"

#include <grpcpp/impl/server_initializer.h>

namespace platform {
namespace {

/// Plug-ins are the only ones to whom gRPC tells the names.
class NamesPlugin : public grpc::ServerBuilderPlugin {
public:
    explicit NamesPlugin(std::vector<std::string>& names) : names_(names) {}

    std::string name() override { return "service names"; }
    void InitServer(grpc::ServerInitializer* /*initializer*/) override {}
    void Finish(grpc::ServerInitializer* initializer) override {
        names_ = *initializer->GetServiceList();
    }
    void ChangeArguments(const std::string& /*name*/, void* /*value*/) override {}

private:
    std::vector<std::string>& names_;
};

}  // namespace

void ServiceNames::UpdatePlugins(std::vector<std::unique_ptr<grpc::ServerBuilderPlugin>>* plugins) {
    plugins->push_back(std::make_unique<NamesPlugin>(names_));
}

}  // namespace platform
