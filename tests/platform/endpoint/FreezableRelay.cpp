#include "platform/endpoint/FreezableRelay.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>

namespace {

constexpr int kPollMilliseconds = 20;

bool isReadable(int descriptor) {
    pollfd wanted{descriptor, POLLIN, 0};
    return poll(&wanted, 1, kPollMilliseconds) > 0;
}

/// False when the connection has ended.
bool forward(int from, int to) {
    std::array<char, 65536> buffer;
    const ssize_t size = recv(from, buffer.data(), buffer.size(), 0);
    return size > 0 && send(to, buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) > 0;
}

}  // namespace

FreezableRelay::FreezableRelay(unsigned short target) {
    listener_.listen();
    thread_ = std::thread([this, target] { run(target); });
}

FreezableRelay::~FreezableRelay() {
    ended_ = true;
    thread_.join();
}

void FreezableRelay::run(unsigned short target) {
    while (!isReadable(listener_.descriptor())) {
        if (ended_)
            return;
    }
    const LocalSocket client = listener_.accept();
    LocalSocket server;
    server.connect(target);
    while (!ended_) {
        std::array<pollfd, 2> ends{pollfd{client.descriptor(), POLLIN, 0},
                                   pollfd{server.descriptor(), POLLIN, 0}};
        poll(ends.data(), frozen_ ? 0 : ends.size(), kPollMilliseconds);
        if ((ends[0].revents != 0 && !forward(ends[0].fd, ends[1].fd)) ||
            (ends[1].revents != 0 && !forward(ends[1].fd, ends[0].fd)))
            return;
    }
}
