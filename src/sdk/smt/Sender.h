#pragma once

#include "sdk/smt/PcmPayloader.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace smt {

/// How sender and receiver agree on time.
enum class TimeSyncProtocol : int {
    SharedClock = 1,
    None = 2,  ///< the receiver's clock alone sets the pace
};

/// The nanomsg pattern of a stream.
enum class NanomsgProtocol : int {
    Pair = 1,
};

/// The sending end of a media stream. disableSend() may be called from any thread, all else from
/// one thread at a time.
class Sender {
public:
    Sender();
    /// Frees everything at once, without waiting for what is on its way.
    ~Sender();
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    /// Opens the stream `socket`, to which the player connects. The two texts and the number select
    /// a remote receiver; empty and 0 stand for the player of this process. False on failure.
    bool initializeSender(const std::string& socket, const std::string& remoteAddress,
                          const std::string& interface, unsigned remotePort,
                          TimeSyncProtocol timeSync, NanomsgProtocol protocol);

    void setCurrentPayloader(PcmPayloader* payloader);

    /// The next media data begin a new sequence, in the payloader's present format.
    void startNewSequence();

    /// Sends whole frames, with the time at which they are to be heard and their duration
    /// (miscUtils::NoTimeValue for neither). Waits while the pipeline is full. Drops the data when
    /// sending is disabled, the stream is not open or the player is gone: the first at once, and
    /// each further one when the one before would have been heard.
    void sendMediaData(unsigned long time, unsigned long duration,
                       std::span<const std::byte> frames);

    /// Disabling frees a waiting sendMediaData() at once, whatever it waits for.
    void disableSend(bool disabled);

    /// Ends the stream: returns when the player has taken everything that was sent, or sending is
    /// disabled, or the player is gone.
    void shutdownSender();

private:
    class Private;
    const std::unique_ptr<Private> private_;
};

}  // namespace smt
