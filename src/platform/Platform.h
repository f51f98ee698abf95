#pragma once

#include "platform/DeviceDescription.h"
#include "platform/player/AudioProcessor.h"

#include <memory>

namespace platform {

class Tree;

/// The reference platform of one device: its configuration tree with persistent settings, power
/// manager, player and attenuation. While it exists, CMRoot() and the other process-wide
/// interfaces of the SDK lead to it; there is at most one at a time. Workers must be gone before it
/// is destroyed.
class Platform {
public:
    /// Opens the settings and fills the tree. A damaged settings store is moved aside with a log
    /// message. Throws std::runtime_error, naming what and where, when the state directory cannot
    /// be used. What is played passes through `processor`.
    explicit Platform(const DeviceDescription& description,
                      std::unique_ptr<AudioProcessor> processor = std::make_unique<PassThrough>());

    /// Writes what is not yet stored.
    ~Platform();

    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    Tree& tree();

private:
    class Private;
    const std::unique_ptr<Private> private_;
};

}  // namespace platform
