#pragma once

#include "roomsim/FileDescriptor.h"
#include "roomsim/RoomMemory.h"

#include <filesystem>
#include <optional>

namespace roomsim {

/// A room as its two streams see it, whether they are in one process or in two.
///
/// It comes into being with the first stream and goes with the last. It is found by the canonical
/// path of its file, for each user apart. A lock on the memory's file, which the kernel drops when
/// a process dies, is each stream's sign of life.
class SharedRoom {
public:
    /// Enters the room as one of its streams; the first one to enter makes it. `history`: seconds
    /// of the speakers' sound to keep. Throws RoomError, with EBUSY when the role is taken.
    SharedRoom(const RoomDescription& description, Role role, double history);

    /// Leaves the room.
    ~SharedRoom();
    SharedRoom(const SharedRoom&) = delete;
    SharedRoom& operator=(const SharedRoom&) = delete;

    [[nodiscard]] RoomMemory::Access access() { return memory_->access(); }

    /// False when the other stream's process has died, or there is none.
    [[nodiscard]] bool peerIsAlive() const;

    /// A pipe that becomes readable when the other stream calls wakePeer().
    [[nodiscard]] int wakeFd() const { return wake_.get(); }
    void wakePeer() const;

    /// The present state of the room that the file describes; nothing when nobody is in it.
    static std::optional<RoomState> inspect(const std::filesystem::path& file);

private:
    bool enter(const RoomDescription& description, double history);
    RoomMemory openMemory(const RoomDescription& description, double history);
    void removeFiles() const;

    Role role_;
    std::filesystem::path path_;
    FileDescriptor file_;
    FileDescriptor wake_;
    FileDescriptor peerWake_;
    std::optional<RoomMemory> memory_;
};

}  // namespace roomsim
