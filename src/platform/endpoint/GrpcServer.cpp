#include "platform/endpoint/GrpcServer.h"

#include "platform/Log.h"
#include "platform/endpoint/AnswerInterceptor.h"
#include "platform/endpoint/MessageInterceptor.h"
#include "platform/endpoint/ServiceNames.h"

#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/health_check_service_interface.h>
#include <grpcpp/resource_quota.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace platform {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

/// A client is declared dead after at most the sum of both, so that what it had begun can be ended
/// within 15 s.
constexpr milliseconds kKeepaliveTime = 7s;
constexpr milliseconds kKeepaliveTimeout = 5s;

/// Clients may ping as often as this; faster ones are disconnected.
constexpr milliseconds kMinimumPingInterval = 500ms;

/// How long calls may take to end by themselves when the server stops.
constexpr milliseconds kStopGrace = 100ms;

/// gRPC's switch for the health service holds for all later servers of the process and must not be
/// turned while another thread builds one: it is turned when the library is loaded, before there
/// are other threads.
const bool kStandardServices = [] {
    grpc::EnableDefaultHealthCheckService(true);
    grpc::reflection::InitProtoReflectionServerBuilderPlugin();
    return true;
}();

std::string joinAddress(const std::string& address, unsigned short port) {
    const bool isIpv6 = address.find(':') != std::string::npos;
    const std::string host = isIpv6 ? '[' + address + ']' : address;
    return host + ':' + std::to_string(port);
}

/// A port is never shared: a second server on it fails to start.
void refuseSharedPort(grpc::ServerBuilder& builder) {
    builder.AddChannelArgument(GRPC_ARG_ALLOW_REUSEPORT, 0);
}

void setKeepalive(grpc::ServerBuilder& builder) {
    const auto set = [&](const char* argument, milliseconds value) {
        builder.AddChannelArgument(argument, static_cast<int>(value.count()));
    };
    set(GRPC_ARG_KEEPALIVE_TIME_MS, kKeepaliveTime);
    set(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, kKeepaliveTimeout);
    set(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, kMinimumPingInterval);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
    // 0: a stream on which nothing is sent is watched as well.
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
}

void setLimits(grpc::ServerBuilder& builder, const GrpcServerLimits& limits) {
    grpc::ResourceQuota quota;
    quota.SetMaxThreads(limits.handlers + 1);  // one thread waits for the next call
    quota.Resize(limits.bufferBytes);
    builder.SetResourceQuota(quota);
    builder.SetMaxReceiveMessageSize(limits.messageBytes);
    builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, limits.callsOfAConnection);
}

/// The place of a message is given back before the client is made to wait for its answer.
void intercept(grpc::ServerBuilder& builder, const GrpcServerLimits& limits,
               const std::function<void()>& beforeAnswer) {
    std::vector<std::unique_ptr<grpc::experimental::ServerInterceptorFactoryInterface>> factories;
    factories.push_back(messageInterceptors(limits.unpackedMessages));
    if (beforeAnswer)
        factories.push_back(answerInterceptors(beforeAnswer));
    builder.experimental().SetInterceptorCreators(std::move(factories));
}

/// The health service answers for the server as a whole by itself, for a single service only when
/// told so.
void reportServing(const grpc::Server& server, const std::vector<std::string>& serviceNames) {
    for (const std::string& name : serviceNames)
        server.GetHealthCheckService()->SetServingStatus(name, true);
}

}  // namespace

std::unique_ptr<GrpcServer> GrpcServer::start(std::shared_ptr<grpc::Service> service,
                                              const std::string& address, unsigned short port,
                                              const GrpcServerLimits& limits,
                                              const std::function<void()>& beforeAnswer) {
    const std::string target = joinAddress(address, port);
    int boundPort = 0;
    std::vector<std::string> serviceNames;
    grpc::ServerBuilder builder;
    refuseSharedPort(builder);
    setKeepalive(builder);
    setLimits(builder, limits);
    intercept(builder, limits, beforeAnswer);
    builder.SetOption(std::make_unique<ServiceNames>(serviceNames));
    builder.RegisterService(service.get());
    builder.AddListeningPort(target, grpc::InsecureServerCredentials(), &boundPort);
    std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server || boundPort == 0) {
        LOG4CPLUS_WARN(logger, "Cannot listen on " << target);
        return nullptr;
    }
    reportServing(*server, serviceNames);
    return std::unique_ptr<GrpcServer>(new GrpcServer(std::move(service), std::move(server),
                                                      static_cast<unsigned short>(boundPort)));
}

GrpcServer::GrpcServer(std::shared_ptr<grpc::Service> service, std::unique_ptr<grpc::Server> server,
                       unsigned short port)
    : service_(std::move(service)), server_(std::move(server)), port_(port) {
}

GrpcServer::~GrpcServer() {
    GrpcServer::stop();
}

void GrpcServer::stop() {
    std::call_once(stopped_,
                   [this] { server_->Shutdown(std::chrono::system_clock::now() + kStopGrace); });
}

}  // namespace platform
