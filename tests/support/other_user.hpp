// Whether a test can give its files to another user, and become that user.
#pragma once

#include <unistd.h>

namespace test {

// Root can, but not where a container or a user namespace has no other user.
inline bool can_become(uid_t user) {
    if (geteuid() != 0 || seteuid(user) != 0) {
        return false;
    }
    return seteuid(0) == 0;
}

}  // namespace test
