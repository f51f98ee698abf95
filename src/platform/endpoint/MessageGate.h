#pragma once

#include <condition_variable>
#include <mutex>

namespace platform {

/// Lets so many at a time through; the others wait. Any thread.
class MessageGate {
public:
    explicit MessageGate(int places) : free_(places) {}

    /// A place, taken for as long as the object lives. The gate must outlive it.
    class Place {
    public:
        /// Waits for one.
        explicit Place(MessageGate& gate);
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

    private:
        MessageGate& gate_;
    };

private:
    std::mutex mutex_;
    std::condition_variable freed_;
    int free_;  // guarded by mutex_
};

}  // namespace platform
