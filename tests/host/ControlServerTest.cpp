#include "host/ControlServer.h"
#include "host/TestDevice.h"
#include "host/WorkerThread.h"
#include "platform/Platform.h"
#include "platform/cm/Tree.h"
#include "sdk/cm/VeskPaths.h"
#include "support/Eventually.h"
#include "support/ScratchDirectory.h"
#include "support/WorkingDirectory.h"

#include <control.grpc.pb.h>
#include <gmock/gmock.h>
#include <grpcpp/create_channel.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <future>
#include <optional>

namespace host {
namespace {

using grpc::Status;
using grpc::StatusCode;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Property;
using vesk::control::Control;
using vesk::control::Node;

std::chrono::system_clock::time_point soon() {
    return std::chrono::system_clock::now() + std::chrono::seconds(20);
}

/// A watch in progress.
class Watch {
public:
    Watch(Control::Stub& stub, const std::vector<std::string>& prefixes, bool present = false) {
        vesk::control::WatchRequest request;
        request.set_present(present);
        for (const auto& prefix : prefixes)
            request.add_prefixes(prefix);
        context_.set_deadline(soon());
        reader_ = stub.Watch(&context_, request);
        reader_->WaitForInitialMetadata();
    }
    ~Watch() {
        context_.TryCancel();
        finish();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// "path json" of the next change; the word "end" at the end.
    std::string next() {
        Node node;
        return reader_->Read(&node) ? node.path() + " " + node.value().json() : "end";
    }

    Status finish() {
        Node node;
        while (!finished_ && reader_->Read(&node)) {
        }
        if (!finished_)
            finished_ = reader_->Finish();
        return *finished_;
    }

private:
    grpc::ClientContext context_;
    std::unique_ptr<grpc::ClientReader<Node>> reader_;
    std::optional<Status> finished_;
};

class ControlServerTest : public testing::Test {
protected:
    void SetUp() override { serve(); }

    void serve() {
        server_.emplace(platform_.tree(), path_);
        stub_ = newStub();
    }
    void stop() { server_.reset(); }

    std::unique_ptr<Control::Stub> newStub() const {
        return Control::NewStub(
            grpc::CreateChannel("unix:" + path_, grpc::InsecureChannelCredentials()));
    }

    template <typename Request, typename Reply>
    Status call(Status (Control::Stub::*method)(grpc::ClientContext*, const Request&, Reply*),
                const Request& request, Reply* reply) {
        grpc::ClientContext context;
        context.set_deadline(soon());
        return (*stub_.*method)(&context, request, reply);
    }

    Status set(const std::string& path, const std::string& text, const std::string& type = "") {
        vesk::control::SetRequest request;
        request.set_path(path);
        request.set_text(text);
        request.set_type(type);
        vesk::control::SetReply reply;
        return call(&Control::Stub::Set, request, &reply);
    }
    Status invoke(const std::string& path, const std::string& arguments, std::string* answer) {
        vesk::control::InvokeRequest request;
        request.set_path(path);
        request.set_arguments(arguments);
        vesk::control::InvokeReply reply;
        const Status status = call(&Control::Stub::Invoke, request, &reply);
        *answer = reply.json();
        return status;
    }
    Node get(const std::string& path) {
        vesk::control::GetRequest request;
        request.set_path(path);
        Node node;
        EXPECT_TRUE(call(&Control::Stub::Get, request, &node).ok());
        return node;
    }
    std::vector<Node> list(const std::string& prefix) {
        vesk::control::ListRequest request;
        request.set_prefix(prefix);
        vesk::control::ListReply reply;
        EXPECT_TRUE(call(&Control::Stub::List, request, &reply).ok());
        return {reply.nodes().begin(), reply.nodes().end()};
    }

    void expectRefused(const Status& status, StatusCode code, const std::string& text) {
        EXPECT_EQ(status.error_code(), code) << status.error_message();
        EXPECT_THAT(status.error_message(), HasSubstr(text));
    }
    void expectSet(const std::string& path, const std::string& text, const std::string& json) {
        const Status status = set(path, text);
        EXPECT_TRUE(status.ok()) << status.error_message();
        EXPECT_EQ(get(path).value().json(), json);
    }

    static constexpr const char* kAttenuation = "system/attenuation";

    const ScratchDirectory scratch_;
    const WorkingDirectory directory_{scratch_.path()};  // where the test worker leaves a file
    const std::string path_ = (scratch_.path() / "control.sock").string();
    platform::Platform platform_{deviceInMemory()};
    const WorkerThread worker_{VESK_TEST_PLUGIN};
    std::optional<ControlServer> server_;
    std::unique_ptr<Control::Stub> stub_;
};

TEST_F(ControlServerTest, OnlyItsOwnUserMayOpenTheSocket) {
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(ControlServerTest, TheSocketGoesWithTheServer) {
    stop();
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(ControlServerTest, ASecondServerIsRefused) {
    EXPECT_THAT([&] { ControlServer(platform_.tree(), path_); },
                testing::ThrowsMessage<std::runtime_error>(
                    path_ + ": the control socket is served by another process"));
    EXPECT_EQ(get("device/name").value().json(), "\"Room\"");
}

TEST_F(ControlServerTest, ListsTheNodesBelowAPrefix) {
    EXPECT_THAT(list("test/c"), ElementsAre(Property(&Node::path, "test/choice"),
                                            Property(&Node::path, "test/choices")));
    EXPECT_THAT(list(""), Contains(Property(&Node::path, "device/name")));
    EXPECT_THAT(list("zzz"), testing::IsEmpty());
}

TEST_F(ControlServerTest, ListShortensLongListsAndGetDoesNot) {
    ASSERT_TRUE(set("player/volumeMap", "[-9,-8,-7,-6,-5,-4,-3,-2,-1,0]").ok());
    EXPECT_EQ(list("player/volumeMap")[0].value().json(), "\"10 elements\"");
    EXPECT_EQ(get("player/volumeMap").value().json(),
              "[-9.0,-8.0,-7.0,-6.0,-5.0,-4.0,-3.0,-2.0,-1.0,0.0]");
}

TEST_F(ControlServerTest, DescribesAValue) {
    const Node node = get("test/choice");
    EXPECT_EQ(node.kind(), Node::VALUE);
    EXPECT_EQ(node.value().type(), "i32");
    EXPECT_EQ(node.title(), "Choice");
    EXPECT_EQ(node.choices(), "test/choices");
    EXPECT_EQ(node.worker(), "Test");
    EXPECT_FALSE(node.persistent());
    EXPECT_TRUE(get("dirac/slots").persistent());
    EXPECT_EQ(get("dirac/slots").worker(), "");
}

TEST_F(ControlServerTest, DescribesRowsAndActions) {
    const Node rows = get("test/choices");
    EXPECT_EQ(rows.kind(), Node::ROWS);
    ASSERT_EQ(rows.rows_size(), 4);
    EXPECT_EQ(rows.rows(1).title(), "Filter: Sofa");
    EXPECT_EQ(rows.rows(1).type(), 101);
    EXPECT_EQ(rows.rows(1).value().json(), "3");
    EXPECT_EQ(get("test/echo").kind(), Node::ACTION);
    EXPECT_FALSE(get("test/empty").has_value());
}

TEST_F(ControlServerTest, UnknownPathsAreNotFound) {
    vesk::control::GetRequest request;
    request.set_path("no/where");
    Node node;
    expectRefused(call(&Control::Stub::Get, request, &node), StatusCode::NOT_FOUND,
                  "there is no node \"no/where\"");
    expectRefused(set("no/where", "1"), StatusCode::NOT_FOUND, "no/where");
    std::string answer;
    expectRefused(invoke("no/where", "", &answer), StatusCode::NOT_FOUND, "no/where");
}

TEST_F(ControlServerTest, SetsEachTypeOfValue) {
    expectSet("talvor/corbel/filteringEnabled", "true", "true");
    expectSet("talvor/corbel/diracSlotsUpdate", "5", "5");
    expectSet(kAttenuation, "-3.5", "-3.5");
    expectSet(kAttenuation, "-4", "-4.0");
    expectSet("device/name", "Living room", "\"Living room\"");
    expectSet("player/volumeMap", "[-60, -1.5]", "[-60.0,-1.5]");
    expectSet("dirac/slots", R"({"activeSlot": 2, "slots_": []})",
              R"({"activeSlot":2,"slots_":[]})");
    expectSet("player/data", R"({"state": 2})", R"({"state":2})");
}

TEST_F(ControlServerTest, AValueOfTheDeviceIsChangedWhenSetReturns) {
    ASSERT_TRUE(set(kAttenuation, "-7").ok());
    EXPECT_EQ(platform_.tree().read(CMPath(kAttenuation))->double_(), -7);
}

TEST_F(ControlServerTest, AValueOfAnotherTypeIsRefused) {
    expectRefused(set(kAttenuation, "loud"), StatusCode::INVALID_ARGUMENT, "not JSON: \"loud\"");
    expectRefused(set("talvor/corbel/diracSlotsUpdate", "1.5"), StatusCode::INVALID_ARGUMENT,
                  "expected an integer");
    expectRefused(set("dirac/slots", "{}"), StatusCode::INVALID_ARGUMENT,
                  "/slots_: this field is missing");
    expectRefused(set(kAttenuation, "1", "i32"), StatusCode::INVALID_ARGUMENT,
                  "the node holds a value of type double, not i32");
}

TEST_F(ControlServerTest, ANodeWithoutValueTakesTheTypeOfTheText) {
    expectSet("test/empty", "true", "true");
    expectRefused(set("test/empty", "5"), StatusCode::INVALID_ARGUMENT, "true or false");
}

TEST_F(ControlServerTest, ANodeWithoutValueTakesTheTypeGiven) {
    ASSERT_TRUE(set("test/empty", "5", "double").ok());
    EXPECT_EQ(get("test/empty").value().type(), "double");
}

TEST_F(ControlServerTest, AChoiceIsMadeByItsTitleOrItsValue) {
    expectSet("test/choice", "Filter: Sofa", "3");
    expectSet("test/choice", "off", "-1");
    expectSet("test/choice", "5", "5");
    expectSet("test/choice", "-1", "-1");
}

TEST_F(ControlServerTest, ATitleThatTwoChoicesHaveIsRefused) {
    expectRefused(set("test/choice", "Twin"), StatusCode::INVALID_ARGUMENT,
                  "more than one choice is called \"Twin\": give its value");
}

TEST_F(ControlServerTest, TheWordsOfTheValidatorComeBack) {
    expectRefused(set("test/choice", "13"), StatusCode::FAILED_PRECONDITION, "Unlucky number");
    EXPECT_EQ(get("test/choice").value().json(), "-1");
}

TEST_F(ControlServerTest, WhatHasNoValueCannotBeSet) {
    expectRefused(set("test/choices", "1"), StatusCode::FAILED_PRECONDITION, "has no value to set");
    expectRefused(set("test/echo", "1"), StatusCode::FAILED_PRECONDITION, "has no value to set");
}

TEST_F(ControlServerTest, AnActionAnswers) {
    std::string answer;
    EXPECT_TRUE(invoke("test/echo", R"({"a": [1, {"b": "c"}]})", &answer).ok());
    EXPECT_EQ(answer, R"({"a":[1,{"b":"c"}]})");
    EXPECT_TRUE(invoke("test/echo", "", &answer).ok());
    EXPECT_EQ(answer, "{}");
}

TEST_F(ControlServerTest, TheErrorOfAnActionComesBack) {
    std::string answer;
    expectRefused(invoke("test/fail", "", &answer), StatusCode::FAILED_PRECONDITION,
                  "Out of order");
    expectRefused(invoke("test/echo", "[]", &answer), StatusCode::INVALID_ARGUMENT,
                  "expected an object");
    EXPECT_EQ(invoke("test/choice", "", &answer).error_code(), StatusCode::FAILED_PRECONDITION);
}

TEST_F(ControlServerTest, AWatchStreamsChangesInOrder) {
    Watch watch(*stub_, {kAttenuation, "test/"});
    ASSERT_TRUE(set(kAttenuation, "-1").ok());
    EXPECT_EQ(watch.next(), "system/attenuation -1.0");
    ASSERT_TRUE(set("device/name", "Elsewhere").ok());
    ASSERT_TRUE(set("test/choice", "5").ok());
    EXPECT_EQ(watch.next(), "test/choice 5");
    ASSERT_TRUE(set(kAttenuation, "-1").ok());  // equal: no change
    ASSERT_TRUE(set(kAttenuation, "-2").ok());
    EXPECT_EQ(watch.next(), "system/attenuation -2.0");
}

TEST_F(ControlServerTest, AWatchBeginsWithThePresentContentWhenAsked) {
    Watch watch(*stub_, {"test/c", "test/e"}, true);
    EXPECT_EQ(watch.next(), "test/choice -1");
    EXPECT_EQ(watch.next(), "test/choices ");
    EXPECT_EQ(watch.next(), "test/empty ");
    ASSERT_TRUE(set("test/choice", "5").ok());
    EXPECT_EQ(watch.next(), "test/choice 5");
}

TEST_F(ControlServerTest, AWatchWithoutPrefixSeesTheWholeTree) {
    Watch watch(*stub_, {});
    ASSERT_TRUE(set("device/name", "Elsewhere").ok());
    EXPECT_EQ(watch.next(), "device/name \"Elsewhere\"");
}

TEST_F(ControlServerTest, SeveralWatchersSeeTheSame) {
    Watch first(*stub_, {});
    Watch second(*stub_, {});
    ASSERT_TRUE(set(kAttenuation, "-1").ok());
    EXPECT_EQ(first.next(), "system/attenuation -1.0");
    EXPECT_EQ(second.next(), "system/attenuation -1.0");
}

TEST_F(ControlServerTest, TheNumberOfWatchersIsBounded) {
    std::vector<std::unique_ptr<Watch>> watches;
    for (int count = 0; count < 16; ++count)
        watches.push_back(std::make_unique<Watch>(*stub_, std::vector<std::string>{}));
    Watch oneMore(*stub_, {});
    expectRefused(oneMore.finish(), StatusCode::RESOURCE_EXHAUSTED, "too many watchers");

    ASSERT_TRUE(set(kAttenuation, "-1").ok());
    EXPECT_EQ(watches.back()->next(), "system/attenuation -1.0");
    watches.clear();
    EXPECT_TRUE(eventually([&] {
        Watch again(*stub_, {kAttenuation}, true);
        return again.next() != "end";
    }));
}

TEST_F(ControlServerTest, TheEndOfTheServerEndsWatches) {
    Watch watch(*stub_, {});
    stop();
    expectRefused(watch.finish(), StatusCode::UNAVAILABLE, "the device ends");
}

TEST_F(ControlServerTest, TheEndOfTheServerEndsACallThatNobodyAnswers) {
    auto silent = std::async(std::launch::async, [this] {
        std::string answer;
        return invoke("test/silence", "", &answer);
    });
    // The worker has taken the request before it takes the next one.
    std::string answer;
    ASSERT_TRUE(invoke("test/echo", "", &answer).ok());
    stop();
    EXPECT_FALSE(silent.get().ok());
}

TEST_F(ControlServerTest, AMessageThatIsTooLargeIsRefused) {
    const Status status = set("device/name", std::string(65UL * 1024 * 1024, 'x'));
    EXPECT_EQ(status.error_code(), StatusCode::RESOURCE_EXHAUSTED);
    EXPECT_EQ(get("device/name").value().json(), "\"Room\"");
}

TEST_F(ControlServerTest, CallsFromManyThreadsAgree) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::vector<std::future<bool>> writers;
    for (int thread = 0; thread < kThreads; ++thread)
        writers.push_back(std::async(std::launch::async, [this, thread] {
            bool allSet = true;
            for (int round = 0; round < kRounds; ++round)
                allSet = set("test/choice", std::to_string(100 + thread)).ok() && allSet;
            return allSet;
        }));
    for (auto& writer : writers)
        EXPECT_TRUE(writer.get());
    EXPECT_THAT(std::stoi(get("test/choice").value().json()),
                AllOf(testing::Ge(100), testing::Lt(100 + kThreads)));
}

}  // namespace
}  // namespace host
