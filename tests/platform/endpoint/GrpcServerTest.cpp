#include "platform/endpoint/FreezableRelay.h"
#include "platform/endpoint/GrpcServer.h"
#include "platform/endpoint/LocalSocket.h"
#include "platform/endpoint/RawCall.h"
#include "platform/endpoint/StreamingClient.h"
#include "platform/endpoint/StreamingService.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <google/protobuf/unknown_field_set.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace dio::endpoint;
using platform::GrpcServer;
using platform::GrpcServerLimits;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr auto kLoopback = "127.0.0.1";

FIIR filterOf(int taps, int biquads) {
    FIIR filter;
    filter.mutable_fir()->mutable_taps()->Resize(taps, 0.25F);
    for (int i = 0; i < biquads; ++i) {
        Biquad& biquad = *filter.mutable_iir()->add_biquads();
        biquad.set_a1(0.5F);
        biquad.set_a2(0.25F);
        biquad.set_b0(1);
        biquad.set_b1(2);
        biquad.set_b2(3);
    }
    return filter;
}

std::vector<std::unique_ptr<StreamingClient>> connect(int count, unsigned short port) {
    std::vector<std::unique_ptr<StreamingClient>> clients;
    for (int i = 0; i < count; ++i)
        clients.push_back(std::make_unique<StreamingClient>(port));
    return clients;
}

/// Its SetCellFIIR holds what it gets until release().
class HoldingService : public dio::endpoint::EndpointDevice::Service {
public:
    grpc::Status SetCellFIIR(grpc::ServerContext* /*context*/, const FIIR* filter,
                             Void* /*reply*/) override {
        std::unique_lock lock(mutex_);
        sawUnknownFields_ |= !filter->GetReflection()->GetUnknownFields(*filter).empty();
        most_ = std::max(most_, ++held_);
        changed_.notify_all();
        changed_.wait(lock, [this] { return released_; });
        --held_;
        return grpc::Status::OK;
    }

    bool awaitHeld(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 60s, [&] { return held_ == count; });
    }

    /// The most at a time so far.
    int most() {
        const std::lock_guard lock(mutex_);
        return most_;
    }

    bool sawUnknownFields() {
        const std::lock_guard lock(mutex_);
        return sawUnknownFields_;
    }

    void release() {
        const std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_:
    bool released_{false};
    bool sawUnknownFields_{false};
    int held_{0};
    int most_{0};
};

/// Elements of two bytes each, as many as a message has room for.
template <typename Message>
Message withUnknownFields() {
    Message message;
    google::protobuf::UnknownFieldSet& fields =
        *message.GetReflection()->MutableUnknownFields(&message);
    constexpr int kUnused = 15;
    for (int i = 0; i < GrpcServerLimits().messageBytes / 2 - 100; ++i)
        fields.AddLengthDelimited(kUnused);
    return message;
}

double secondsOf(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

class GrpcServerTest : public testing::Test {
protected:
    std::unique_ptr<GrpcServer> start(unsigned short port = 0,
                                      const GrpcServerLimits& limits = {}) {
        return GrpcServer::start(service, kLoopback, port, limits);
    }

    const std::shared_ptr<StreamingService> service = std::make_shared<StreamingService>();
};

TEST_F(GrpcServerTest, ServesAtTheFreePortThatItReports) {
    const auto server = start();
    ASSERT_NE(server, nullptr);
    EXPECT_GT(server->port(), 0);
    EXPECT_TRUE(StreamingClient(server->port()).call().ok());
}

TEST_F(GrpcServerTest, ServesAtTheAskedPort) {
    const unsigned short port = start()->port();
    const auto server = start(port);
    ASSERT_NE(server, nullptr);
    EXPECT_EQ(server->port(), port);
    EXPECT_TRUE(StreamingClient(port).call().ok());
}

TEST_F(GrpcServerTest, ClientIsAnsweredAfterWhatComesBeforeAnAnswer) {
    std::atomic<int> calls{0};
    std::atomic<bool> isAnswered{false};
    std::atomic<bool> wasAnsweredBefore{false};
    const auto server = GrpcServer::start(service, kLoopback, 0, {}, [&] {
        std::this_thread::sleep_for(50ms);  // an answer that did not wait would overtake
        wasAnsweredBefore = wasAnsweredBefore || isAnswered;
        ++calls;
    });
    ASSERT_NE(server, nullptr);
    StreamingClient client(server->port());
    EXPECT_TRUE(client.call().ok());
    isAnswered = true;
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(wasAnsweredBefore);
}

TEST_F(GrpcServerTest, PortOfAnotherServerGivesNullAndAWarning) {
    const LogCapture log("Platform");
    const auto first = start();
    EXPECT_EQ(start(first->port()), nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre("WARN Cannot listen on 127.0.0.1:" + std::to_string(first->port())));
    EXPECT_TRUE(StreamingClient(first->port()).call().ok());
}

TEST_F(GrpcServerTest, PortOfAnotherProgramGivesNull) {
    LocalSocket other;
    other.listen();
    EXPECT_EQ(start(other.port()), nullptr);
    EXPECT_EQ(GrpcServer::start(service, "0.0.0.0", other.port()), nullptr);
}

TEST_F(GrpcServerTest, InvalidAddressGivesNullAndAWarning) {
    const LogCapture log("Platform");
    EXPECT_EQ(GrpcServer::start(service, "256.0.0.1", 0), nullptr);
    EXPECT_EQ(GrpcServer::start(service, "", 0), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("WARN Cannot listen on 256.0.0.1:0",  //
                                         "WARN Cannot listen on :0"));
}

TEST_F(GrpcServerTest, AddressOfAnotherHostGivesNull) {
    EXPECT_EQ(GrpcServer::start(service, "192.0.2.1", 0), nullptr);
}

TEST_F(GrpcServerTest, Ipv6AddressIsUnderstood) {
    const LogCapture log("Platform");
    const auto server = GrpcServer::start(service, "::", 0);
    ASSERT_NE(server, nullptr);
    EXPECT_EQ(GrpcServer::start(service, "2001:db8::1", 5002), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("WARN Cannot listen on [2001:db8::1]:5002"));
}

TEST_F(GrpcServerTest, OnePortServesManyServersInARow) {
    auto server = start();
    const unsigned short port = server->port();
    for (int i = 0; i < 20; ++i) {
        StreamingClient client(port);
        OpenStream stream(client);
        ASSERT_TRUE(stream.wasAccepted());
        server->stop();
        server = start(port);
        ASSERT_NE(server, nullptr) << "server " << i;
    }
}

TEST_F(GrpcServerTest, StoppedServerIsReplacedWhileItStillExists) {
    const auto first = start();
    first->stop();
    const auto second = start(first->port());
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(StreamingClient(second->port()).call().ok());
}

TEST_F(GrpcServerTest, StopEndsOpenStreamsPromptly) {
    const auto server = start();
    const auto clients = connect(10, server->port());
    std::vector<std::unique_ptr<OpenStream>> streams;
    for (const auto& client : clients)
        streams.push_back(std::make_unique<OpenStream>(*client));
    ASSERT_EQ(service->openStreams(), 10);

    EXPECT_LT(secondsOf([&] { server->stop(); }), 1);
    EXPECT_EQ(service->openStreams(), 0);
    for (const auto& stream : streams)
        EXPECT_FALSE(stream->status().ok());
}

TEST_F(GrpcServerTest, StopTwiceIsLikeOnce) {
    const auto server = start();
    server->stop();
    EXPECT_LT(secondsOf([&] { server->stop(); }), 0.1);
    EXPECT_GT(server->port(), 0);
}

TEST_F(GrpcServerTest, EveryConcurrentStopReturnsAfterTheLastHandler) {
    const auto server = start();
    StreamingClient client(server->port());
    const OpenStream stream(client);
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            server->stop();
            EXPECT_EQ(service->openStreams(), 0);
        });
    }
}

TEST_F(GrpcServerTest, DestructionStops) {
    auto server = start();
    StreamingClient client(server->port());
    OpenStream stream(client);
    server.reset();
    EXPECT_EQ(service->openStreams(), 0);
    EXPECT_FALSE(stream.status().ok());
}

TEST_F(GrpcServerTest, ServerKeepsItsServiceAlive) {
    auto ownService = std::make_shared<StreamingService>();
    const std::weak_ptr<StreamingService> observed = ownService;
    auto server = GrpcServer::start(std::move(ownService), kLoopback, 0);
    EXPECT_TRUE(StreamingClient(server->port()).call().ok());
    EXPECT_FALSE(observed.expired());
    server.reset();
    EXPECT_TRUE(observed.expired());
}

TEST_F(GrpcServerTest, ExceptionOfAHandlerFailsTheCallOnly) {
    const auto server = start();
    StreamingClient client(server->port());
    EXPECT_EQ(client.callThatThrows().error_code(), grpc::UNKNOWN);
    EXPECT_TRUE(client.call().ok());
}

TEST_F(GrpcServerTest, CallBeyondTheHandlersIsRefusedAndTheServerRecovers) {
    const auto server = start(0, {.handlers = 4});
    const auto clients = connect(4, server->port());
    std::vector<std::unique_ptr<OpenStream>> streams;
    for (const auto& client : clients)
        streams.push_back(std::make_unique<OpenStream>(*client));
    ASSERT_EQ(service->openStreams(), 4);

    StreamingClient late(server->port());
    EXPECT_EQ(late.call().error_code(), grpc::RESOURCE_EXHAUSTED);
    streams.pop_back();
    ASSERT_TRUE(service->waitForAtMost(3));
    // The handler has returned; its thread becomes free a moment later.
    grpc::Status status = late.call();
    while (status.error_code() == grpc::RESOURCE_EXHAUSTED)
        status = late.call();
    EXPECT_TRUE(status.ok());
    EXPECT_EQ(service->openStreams(), 3);
}

TEST_F(GrpcServerTest, OneConnectionCannotTakeMoreThanTheHandlers) {
    const auto server = start(0, {.handlers = 4});
    StreamingClient client(server->port());
    std::vector<std::unique_ptr<OpenStream>> streams;
    for (int i = 0; i < 50; ++i)
        streams.push_back(std::make_unique<OpenStream>(client));
    EXPECT_EQ(service->openStreams(), 4);
    for (std::size_t i = 4; i < streams.size(); ++i)
        EXPECT_EQ(streams[i]->status().error_code(), grpc::RESOURCE_EXHAUSTED) << "stream " << i;
}

TEST_F(GrpcServerTest, ConnectionThatHasOpenedAllItMayLeavesTheOthersServed) {
    const auto server = start();
    StreamingClient greedy(server->port());
    std::vector<std::unique_ptr<OpenStream>> streams;
    for (int i = 0; i < 16; ++i) {
        streams.push_back(std::make_unique<OpenStream>(greedy));
        ASSERT_TRUE(streams.back()->wasAccepted()) << "stream " << i;
    }
    // Its further calls wait in the client, for as long as it likes.
    EXPECT_EQ(greedy.call({}, 200ms).error_code(), grpc::DEADLINE_EXCEEDED);
    EXPECT_EQ(service->openStreams(), 16);
    EXPECT_TRUE(StreamingClient(server->port()).call().ok());

    streams.pop_back();
    EXPECT_TRUE(greedy.call().ok());
}

TEST_F(GrpcServerTest, SixtyFourClientsHaveAStreamAndACallEach) {
    const auto server = start();
    const auto clients = connect(64, server->port());
    std::vector<std::unique_ptr<OpenStream>> streams;
    for (int call = 0; call < 2; ++call) {
        for (const auto& client : clients) {
            streams.push_back(std::make_unique<OpenStream>(*client));
            ASSERT_TRUE(streams.back()->wasAccepted()) << "stream " << streams.size();
        }
    }
    EXPECT_EQ(service->openStreams(), 128);
}

TEST_F(GrpcServerTest, LongestUsefulFilterIsTaken) {
    const auto server = start();
    EXPECT_TRUE(StreamingClient(server->port()).call(filterOf(65536, 4096)).ok());
}

TEST_F(GrpcServerTest, SixtyFourClientsTransferTheLongestFiltersAtTheSameTime) {
    const auto server = start();
    const FIIR longest = filterOf(65536, 4096);
    std::atomic<int> taken{0};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 64; ++i) {
            threads.emplace_back([&] {
                StreamingClient client(server->port());
                for (int call = 0; call < 4; ++call)
                    taken += client.call(longest).ok() ? 1 : 0;
            });
        }
    }
    EXPECT_EQ(taken, 64 * 4);
}

class UnpackedMessagesTest : public testing::Test {
protected:
    void TearDown() override { service->release(); }

    /// Calls of as many clients at the same time; waits for none of them.
    void call(int clients, const FIIR& filter) {
        for (int i = 0; i < clients; ++i)
            threads.emplace_back([this, &filter] {
                taken += StreamingClient(server->port()).call(filter).ok() ? 1 : 0;
            });
    }

    void release() {
        service->release();
        threads.clear();
    }

    const std::shared_ptr<HoldingService> service = std::make_shared<HoldingService>();
    const std::unique_ptr<GrpcServer> server =
        GrpcServer::start(service, kLoopback, 0, {.unpackedMessages = 2});
    std::atomic<int> taken{0};
    std::vector<std::jthread> threads;
};

TEST_F(UnpackedMessagesTest, LargeOnesAreInHandlersOnlySoManyAtATime) {
    const FIIR longest = filterOf(65536, 4096);
    call(8, longest);
    EXPECT_TRUE(service->awaitHeld(2));
    std::this_thread::sleep_for(200ms);  // a third one would come meanwhile
    EXPECT_EQ(service->most(), 2);
    release();
    EXPECT_EQ(taken, 8);
    EXPECT_LE(service->most(), 2);
}

TEST_F(UnpackedMessagesTest, SmallOnesDoNotWaitForEachOther) {
    const FIIR small = filterOf(1000, 30);
    call(8, small);
    EXPECT_TRUE(service->awaitHeld(8));
    release();
    EXPECT_EQ(taken, 8);
}

TEST_F(UnpackedMessagesTest, FieldsThatTheProtocolDoesNotKnowAreDroppedBeforeTheHandler) {
    const FIIR unknown = withUnknownFields<FIIR>();
    call(8, unknown);
    EXPECT_TRUE(service->awaitHeld(8)) << "nothing of them is left that would have to wait";
    release();
    EXPECT_EQ(taken, 8);
    EXPECT_FALSE(service->sawUnknownFields());
}

TEST_F(UnpackedMessagesTest, DamagedOnesLeaveTheirPlaces) {
    const auto channel = StreamingClient(server->port()).channel();
    for (int i = 0; i < 4; ++i) {
        const RawReply reply =
            rawCall(channel, "/dio.endpoint.EndpointDevice/SetCellFIIR", "\x0a\x7f");
        EXPECT_FALSE(reply.status.ok());
    }
    service->release();
    EXPECT_TRUE(StreamingClient(server->port()).call().ok());
}

TEST_F(UnpackedMessagesTest, ReflectionIsAnsweredAsOftenAsItIsAsked) {
    for (int i = 0; i < 6; ++i) {
        const RawReply reply = rawCall(
            StreamingClient(server->port()).channel(),
            "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo", {"\x3a\x00", 2});
        EXPECT_THAT(reply.message, HasSubstr("dio.endpoint.EndpointDevice"));
    }
}

TEST_F(GrpcServerTest, FilterSomewhatTooLongReachesTheHandler) {
    const auto server = start();
    EXPECT_TRUE(StreamingClient(server->port()).call(filterOf(65536 + 4096, 4096 + 512)).ok());
}

TEST_F(GrpcServerTest, MessageBeyondTheLimitIsRefusedAndTheConnectionGoesOn) {
    const auto server = start();
    StreamingClient client(server->port());
    const grpc::Status status = client.call(filterOf(120'000, 0));
    EXPECT_EQ(status.error_code(), grpc::RESOURCE_EXHAUSTED);
    EXPECT_THAT(status.error_message(), HasSubstr("larger than max"));
    EXPECT_TRUE(client.call().ok());
}

TEST_F(GrpcServerTest, DeadClientIsNoticedAndQuietOnesAreKept) {
    const auto server = start();
    FreezableRelay relay(server->port());
    // Faster than most servers allow.
    grpc::ChannelArguments pinging;
    pinging.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, 1000);
    pinging.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    StreamingClient dying(relay.port());
    StreamingClient quiet(server->port());
    StreamingClient careful(server->port(), pinging);
    const OpenStream dyingStream(dying);
    const OpenStream quietStream(quiet);
    const OpenStream carefulStream(careful);
    ASSERT_EQ(service->openStreams(), 3);

    relay.freeze();
    EXPECT_TRUE(service->waitForAtMost(2, 15s));
    EXPECT_EQ(service->openStreams(), 2);
}

TEST_F(GrpcServerTest, ReflectionListsTheServices) {
    const auto server = start();
    const RawReply reply =
        rawCall(StreamingClient(server->port()).channel(),
                "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo", {"\x3a\x00", 2});
    EXPECT_THAT(reply.message, HasSubstr("dio.endpoint.EndpointDevice"));
    EXPECT_THAT(reply.message, HasSubstr("grpc.reflection.v1alpha.ServerReflection"));
}

TEST_F(GrpcServerTest, ReflectionDescribesTheService) {
    const auto server = start();
    const RawReply reply = rawCall(StreamingClient(server->port()).channel(),
                                   "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo",
                                   "\x22\x1b"
                                   "dio.endpoint.EndpointDevice");
    EXPECT_THAT(reply.message, HasSubstr("endpoint.proto"));
    EXPECT_THAT(reply.message, HasSubstr("BeginFilterTransfer"));
}

class HealthTest : public GrpcServerTest {
protected:
    RawReply check(const std::string& serviceName) {
        const std::string request =
            serviceName.empty()
                ? ""
                : '\x0a' + std::string(1, static_cast<char>(serviceName.size())) + serviceName;
        return rawCall(StreamingClient(server->port()).channel(), "/grpc.health.v1.Health/Check",
                       request);
    }

    const std::string serving{"\x08\x01"};
    const std::unique_ptr<GrpcServer> server = start();
};

TEST_F(HealthTest, ServerServes) {
    EXPECT_EQ(check("").message, serving);
}

TEST_F(HealthTest, ServiceServes) {
    EXPECT_EQ(check("dio.endpoint.EndpointDevice").message, serving);
}

TEST_F(HealthTest, UnknownServiceIsNotFound) {
    EXPECT_EQ(check("dio.endpoint.Nothing").status.error_code(), grpc::NOT_FOUND);
}

TEST(GrpcServerDeathTest, RunningServerDoesNotKeepTheProcessFromExiting) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const auto forgotten =
                GrpcServer::start(std::make_shared<StreamingService>(), kLoopback, 0).release();
            auto* const client = new StreamingClient(forgotten->port());
            const auto* const stream = new OpenStream(*client);
            std::exit(stream->wasAccepted() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(GrpcServerDeathTest, ServerDestroyedAtExitDoesNotHang) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const auto atExit =
                GrpcServer::start(std::make_shared<StreamingService>(), kLoopback, 0);
            auto* const client = new StreamingClient(atExit->port());
            const auto* const stream = new OpenStream(*client);
            std::exit(stream->wasAccepted() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
