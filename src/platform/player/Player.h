#pragma once

#include "platform/player/AudioProcessor.h"
#include "platform/player/AudioSource.h"
#include "sdk/player/PlayLogicInterface.h"

#include <QString>

#include <memory>

namespace platform {

class Tree;

/// The platform's player: what PlayLogicInterface::playerInstance() gives while the object exists.
/// There is at most one at a time; a second one ends the process.
///
/// It plays media streams ("smt://play?socketAddress=NAME", which ends when its sender is gone) and
/// sound files ("file:///PATH"), one source at a time, in a thread of its own, at the volume that
/// attenuationPath() says. It begins with a source's first data, whether or not a buffer is asked
/// for. A source that cannot be played is logged at ERROR, and the player stops.
class Player : public PlayLogicInterface {
public:
    /// The player shows what it does at playerDataPath(), and what it has done at
    /// playerStatisticsPath(), both of which `tree` must provide. `device` is the ALSA name of the
    /// playback device; without one audio is taken at its own speed, and nobody hears it.
    Player(std::shared_ptr<Tree> tree, const QString& device,
           std::unique_ptr<AudioProcessor> processor = std::make_unique<PassThrough>());
    ~Player() override;
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    CMPath dataPath() const override;

    /// The source is shown when this returns: Transitioning, or, after others, when its turn comes.
    void play(const VeskRoles& roles, bool enqueue) override;
    VeskPlayLogicData data() const override;

    /// No source is shown when this returns. The audio ends within milliseconds, and the sender of
    /// a stream is freed.
    void stop(VeskPlayLogicStopReason::Enum reason) override;

private:
    class Private;
    const std::unique_ptr<Private> private_;
};

/// What to play for a sound file; `path` is absolute.
VeskRoles fileRoles(const QString& path);

}  // namespace platform
