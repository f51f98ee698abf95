#include "sdk/cm/CMReply.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

struct CMVoidReply::State {
    std::mutex mutex;
    std::condition_variable answered;
    bool finished{false};
    QVariant answer;
    CMError error;

    /// The first answer counts.
    void finish(const QVariant& value, const CMError& failure) {
        {
            const std::lock_guard lock(mutex);
            if (finished)
                return;
            finished = true;
            answer = value;
            error = failure;
        }
        answered.notify_all();
    }
};

bool CMVoidReply::isFinished() const {
    if (!state_)
        return true;
    const std::lock_guard lock(state_->mutex);
    return state_->finished;
}

bool CMVoidReply::waitForFinished(unsigned long milliseconds) const {
    if (!state_)
        return true;
    std::unique_lock lock(state_->mutex);
    const auto finished = [this] { return state_->finished; };
    if (milliseconds == std::numeric_limits<unsigned long>::max()) {
        state_->answered.wait(lock, finished);
        return true;
    }
    // Bounded, so that the end of the wait can be expressed on the clock.
    constexpr std::chrono::hours kLongest{24 * 365};
    const auto wait =
        milliseconds < static_cast<unsigned long>(std::chrono::milliseconds(kLongest).count())
            ? std::chrono::milliseconds(milliseconds)
            : std::chrono::milliseconds(kLongest);
    return state_->answered.wait_for(lock, wait, finished);
}

CMError CMVoidReply::error() const {
    if (!state_)
        return {};
    const std::lock_guard lock(state_->mutex);
    return state_->error;
}

void CMVoidReply::setError(const CMError& error) const {
    if (state_)
        state_->finish({}, error);
}

void CMVoidReply::createState() {
    state_ = std::make_shared<State>();
}

void CMVoidReply::promise(const CMError& otherwise) {
    if (state_)
        promise_ = std::shared_ptr<void>(
            nullptr, [state = state_, otherwise](void*) { state->finish({}, otherwise); });
}

QVariant CMVoidReply::answer() const {
    if (!state_)
        return {};
    const std::lock_guard lock(state_->mutex);
    return state_->answer;
}

void CMVoidReply::setAnswer(const QVariant& value) const {
    if (state_)
        state_->finish(value, {});
}
