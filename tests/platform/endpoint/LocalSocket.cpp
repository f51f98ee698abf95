#include "platform/endpoint/LocalSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace {

int succeeded(int result) {
    if (result < 0)
        throw std::system_error(errno, std::system_category());
    return result;
}

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

LocalSocket::LocalSocket() : LocalSocket(succeeded(::socket(AF_INET, SOCK_STREAM, 0))) {
}

LocalSocket::LocalSocket(int descriptor) : descriptor_(descriptor) {
}

LocalSocket::LocalSocket(LocalSocket&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {
}

LocalSocket::~LocalSocket() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

void LocalSocket::listen() {
    const sockaddr_in address = loopback(0);
    succeeded(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    succeeded(::listen(descriptor_, 1));
}

LocalSocket LocalSocket::accept() {
    return LocalSocket(succeeded(::accept(descriptor_, nullptr, nullptr)));
}

void LocalSocket::connect(unsigned short port) {
    const sockaddr_in address = loopback(port);
    succeeded(::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
}

unsigned short LocalSocket::port() const {
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    succeeded(getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size));
    return ntohs(address.sin_port);
}
