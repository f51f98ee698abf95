#include "host/WatchQueue.h"

namespace host {

void WatchQueue::push(const platform::Change& change) {
    const std::lock_guard guard(mutex_);
    if (!change.everyTransition)
        changes_.remove_if([&](const auto& waiting) { return waiting.path == change.path; });
    if (changes_.size() < kCapacity)
        changes_.push_back(change);
    else
        overflowed_ = true;
    arrived_.notify_one();
}

std::optional<platform::Change> WatchQueue::pop(std::chrono::milliseconds patience) {
    std::unique_lock guard(mutex_);
    if (!arrived_.wait_for(guard, patience, [this] { return !changes_.empty(); }))
        return std::nullopt;
    platform::Change change = std::move(changes_.front());
    changes_.pop_front();
    return change;
}

bool WatchQueue::hasOverflowed() const {
    const std::lock_guard guard(mutex_);
    return overflowed_;
}

}  // namespace host
