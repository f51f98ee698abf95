#include "platform/smt/PairSocket.h"

#include <nanomsg/nn.h>
#include <nanomsg/pair.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <random>
#include <system_error>

namespace smt {

namespace {

// The flow control of a stream is in its credits; nanomsg's own bound only has to lie above.
constexpr int kReceiveBuffer = 32 * 1024 * 1024;  // bytes

/// nanomsg has error numbers of its own, and their texts.
class NanomsgCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "nanomsg"; }
    std::string message(int error) const override { return nn_strerror(error); }
};

[[noreturn]] void fail(const std::string& what) {
    static const NanomsgCategory category;
    throw std::system_error(nn_errno(), category, what);
}

int check(int result, const std::string& what) {
    if (result < 0)
        fail(what);
    return result;
}

/// Held around every call on a socket that may be connected. Two ends in one process run in each
/// other's contexts, and nanomsg does not keep one from being closed while the other connects to
/// it, sends or receives: it crashes. None of the calls waits for anything.
std::mutex& callMutex() {
    static std::mutex mutex;
    return mutex;
}

int newSocket() {
    return check(nn_socket(AF_SP, NN_PAIR), "nn_socket");
}

void setOption(int socket, int option, int value) {
    check(nn_setsockopt(socket, NN_SOL_SOCKET, option, &value, sizeof value), "nn_setsockopt");
}

int descriptor(int socket, int option) {
    int result = -1;
    std::size_t size = sizeof result;
    check(nn_getsockopt(socket, NN_SOL_SOCKET, option, &result, &size), "nn_getsockopt");
    return result;
}

}  // namespace

std::string localAddress(const std::string& socket) {
    return "inproc://" + socket;
}

std::uint64_t newIdentity() {
    std::random_device random;
    return std::uniform_int_distribution<std::uint64_t>(1)(random);
}

void ReceivedBytes::Release::operator()(void* bytes) const {
    nn_freemsg(bytes);
}

PairSocket::PairSocket() : socket_(newSocket()) {
    try {
        setOption(socket_, NN_RCVBUF, kReceiveBuffer);
        setOption(socket_, NN_RCVMAXSIZE, static_cast<int>(kLargestMessage));
        receiveDescriptor_ = descriptor(socket_, NN_RCVFD);
        sendDescriptor_ = descriptor(socket_, NN_SNDFD);
    } catch (...) {
        nn_close(socket_);
        throw;
    }
}

PairSocket::~PairSocket() {
    const std::lock_guard<std::mutex> lock(callMutex());
    while (nn_close(socket_) < 0 && nn_errno() == EINTR) {
    }
}

void PairSocket::bind(const std::string& address) {
    const std::lock_guard<std::mutex> lock(callMutex());
    check(nn_bind(socket_, address.c_str()), address);
}

void PairSocket::connect(const std::string& address) {
    const std::lock_guard<std::mutex> lock(callMutex());
    check(nn_connect(socket_, address.c_str()), address);
}

bool PairSocket::trySend(const MessageHeader& header, std::span<const std::byte> payload) {
    void* const bytes = nn_allocmsg(sizeof header + payload.size(), 0);
    if (!bytes)
        fail("nn_allocmsg");
    std::memcpy(bytes, &header, sizeof header);
    std::copy(payload.begin(), payload.end(), static_cast<std::byte*>(bytes) + sizeof header);
    void* message = bytes;
    const std::lock_guard<std::mutex> lock(callMutex());
    if (nn_send(socket_, &message, NN_MSG, NN_DONTWAIT) >= 0)
        return true;
    const int error = nn_errno();
    nn_freemsg(bytes);
    if (error == EAGAIN || error == EINTR)
        return false;
    fail("nn_send");
}

std::optional<ReceivedBytes> PairSocket::tryReceive() {
    void* bytes = nullptr;
    const std::lock_guard<std::mutex> lock(callMutex());
    const int size = nn_recv(socket_, &bytes, NN_MSG, NN_DONTWAIT);
    if (size >= 0)
        return ReceivedBytes(bytes, static_cast<std::size_t>(size));
    if (nn_errno() == EAGAIN || nn_errno() == EINTR)
        return std::nullopt;
    fail("nn_recv");
}

bool PairSocket::hasPeer() const {
    const std::lock_guard<std::mutex> lock(callMutex());
    return nn_get_statistic(socket_, NN_STAT_CURRENT_CONNECTIONS) > 0;
}

}  // namespace smt
