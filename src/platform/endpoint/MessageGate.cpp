#include "platform/endpoint/MessageGate.h"

namespace platform {

MessageGate::Place::Place(MessageGate& gate) : gate_(gate) {
    std::unique_lock lock(gate_.mutex_);
    gate_.freed_.wait(lock, [this] { return gate_.free_ > 0; });
    --gate_.free_;
}

MessageGate::Place::~Place() {
    {
        const std::lock_guard lock(gate_.mutex_);
        ++gate_.free_;
    }
    gate_.freed_.notify_one();
}

}  // namespace platform
