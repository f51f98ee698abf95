#pragma once

#include "platform/smt/Message.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace smt {

/// The address, within this process, of the stream `socket`.
std::string localAddress(const std::string& socket);

/// A random identity for a stream or a player, not 0.
std::uint64_t newIdentity();

/// The bytes of a message that was received, until they are released.
class ReceivedBytes {
public:
    ReceivedBytes() = default;
    /// Takes over `size` bytes that nanomsg has allocated.
    ReceivedBytes(void* bytes, std::size_t size) : bytes_(bytes), size_(size) {}

    std::span<const std::byte> bytes() const {
        return {static_cast<const std::byte*>(bytes_.get()), size_};
    }

private:
    struct Release {
        void operator()(void* bytes) const;
    };

    std::unique_ptr<void, Release> bytes_;
    std::size_t size_{0};
};

/// One end of a stream: a nanomsg socket that talks to one peer. No operation waits. The
/// constructor and the functions that open it throw std::system_error.
class PairSocket {
public:
    PairSocket();
    /// What has been sent and the peer has not received yet is lost.
    ~PairSocket();
    PairSocket(const PairSocket&) = delete;
    PairSocket& operator=(const PairSocket&) = delete;

    /// Fails when another socket has the address.
    void bind(const std::string& address);
    /// The peer may bind the address later, and again after it was gone.
    void connect(const std::string& address);

    /// False when no peer is there or its queue is full. Throws std::system_error on anything else.
    bool trySend(const MessageHeader& header, std::span<const std::byte> payload = {});
    /// None when there is nothing to receive.
    std::optional<ReceivedBytes> tryReceive();

    /// Readable when there is something to receive.
    int receiveDescriptor() const { return receiveDescriptor_; }
    /// Readable when a peer is there and can take a message.
    int sendDescriptor() const { return sendDescriptor_; }

    bool hasPeer() const;

private:
    const int socket_;
    int receiveDescriptor_{-1};
    int sendDescriptor_{-1};
};

}  // namespace smt
