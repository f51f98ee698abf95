#include "sdk/services/SharedLock.h"

#include "platform/services/SystemVLock.h"

class SharedLock::Private : public platform::SystemVLock {
    using SystemVLock::SystemVLock;
};

SharedLock::SharedLock(const int& key) : private_(std::make_unique<Private>(key)) {
}

SharedLock::~SharedLock() = default;

bool SharedLock::lock() {
    return !private_->lock();
}

void SharedLock::unlock() {
    private_->unlock();
}
