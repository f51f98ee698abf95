#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

/// While it exists, permissions count even when the tests run as root.
class OrdinaryUser {
public:
    OrdinaryUser() { become(kNobody); }
    ~OrdinaryUser() { become(user_); }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    static constexpr uid_t kNobody = 65534;

    void become(uid_t user) const {
        if (user_ == 0 && seteuid(user) != 0)
            ADD_FAILURE() << "cannot change the user";
    }

    const uid_t user_{geteuid()};
};
