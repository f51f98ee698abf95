#include "host/ControlSocket.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

namespace host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::ThrowsMessage;

/// A socket bound to a path, with or without somebody who listens.
class BoundSocket {
public:
    explicit BoundSocket(const fs::path& path) : id_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(id_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    }
    ~BoundSocket() { close(id_); }
    BoundSocket(const BoundSocket&) = delete;
    BoundSocket& operator=(const BoundSocket&) = delete;

    void listen() { EXPECT_EQ(::listen(id_, 1), 0); }

private:
    const int id_;
};

class ControlSocketTest : public testing::Test {
protected:
    void expectRefused(const std::string& path, const std::string& reason) {
        EXPECT_THAT(
            [&] { ControlSocket{path}; },
            ThrowsMessage<std::runtime_error>(HasSubstr(path + ": the control socket " + reason)));
    }

    const ScratchDirectory scratch_;
    const fs::path path_ = scratch_.path() / "control.sock";
};

TEST_F(ControlSocketTest, AFreePathIsTaken) {
    EXPECT_EQ(ControlSocket(path_.string()).path(), path_);
}

TEST_F(ControlSocketTest, ASocketLeftBehindIsRemoved) {
    { const BoundSocket killed(path_); }
    ASSERT_TRUE(fs::is_socket(path_));
    const ControlSocket socket(path_.string());
    EXPECT_FALSE(fs::exists(path_));
}

TEST_F(ControlSocketTest, ASocketThatIsServedStays) {
    BoundSocket other(path_);
    other.listen();
    expectRefused(path_.string(), "is served by another process");
    EXPECT_TRUE(fs::is_socket(path_));
}

TEST_F(ControlSocketTest, AnotherFileStays) {
    std::ofstream(path_) << "precious";
    expectRefused(path_.string(), "cannot be made: something else has this name");
    EXPECT_TRUE(fs::is_regular_file(path_));
}

TEST_F(ControlSocketTest, TheLongestPathHas107Bytes) {
    const std::string longest = "/" + std::string(106, 'x');
    EXPECT_NO_THROW(ControlSocket{longest});
    expectRefused(longest + "x",
                  "cannot have this path: it has 108 bytes, a socket's path at "
                  "most 107; give another with --control");
}

TEST_F(ControlSocketTest, TheFileGoesWithTheObject) {
    {
        const ControlSocket socket(path_.string());
        BoundSocket served(path_);
    }
    EXPECT_FALSE(fs::exists(path_));
}

}  // namespace
}  // namespace host
