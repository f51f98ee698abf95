#pragma once

#include "roomsim/RoomDescription.h"
#include "roomsim/RoomState.h"
#include "roomsim/SpeakerRing.h"

#include <cstddef>
#include <memory>

namespace roomsim {

/// The longest buffer of a stream, in frames.
inline constexpr std::size_t kLongestBuffer = 131072;

/// The shared memory of a room, mapped: clock and stream states, the sound of the speakers, and the
/// robust mutex that guards both.
class RoomMemory {
public:
    /// Exclusive access to the shared data, for as long as it lives.
    class Access {
    public:
        explicit Access(RoomMemory& memory);
        ~Access();
        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;

        RoomState& operator*() const;
        RoomState* operator->() const { return &**this; }
        [[nodiscard]] SpeakerRing speakers() const;

    private:
        RoomMemory& memory_;
    };

    /// Fills the open file with a new room that keeps `history` seconds of the speakers' sound.
    /// Throws RoomError.
    static RoomMemory create(int file, const RoomDescription& description, double history);

    /// Maps the room in the open file. Throws RoomError.
    static RoomMemory attach(int file);

    [[nodiscard]] Access access() { return Access(*this); }

    /// How many speakers the room was created with.
    [[nodiscard]] std::size_t speakers() const;

private:
    struct Layout;
    struct Unmap {
        std::size_t size;
        void operator()(Layout* layout) const;
    };
    using Mapping = std::unique_ptr<Layout, Unmap>;

    explicit RoomMemory(Mapping layout) : layout_(std::move(layout)) {}
    static Mapping map(int file, std::size_t size);

    Mapping layout_;
};

}  // namespace roomsim
