// The calls of the builder reach the real machine, whatever host is attached: they are not
// redirected, not counted, and do not fail by rules.
#pragma once

#include <kxsim/preload.h>

// Programs that only build hosts are not linked with libkxsim.so.
#pragma weak kxsim_attach
#pragma weak kxsim_detach
#pragma weak kxsim_pause
#pragma weak kxsim_resume

namespace kxsim {

class Quiet {
public:
    Quiet() {
        if (kxsim_pause != nullptr) {
            kxsim_pause();
        }
    }
    ~Quiet() {
        if (kxsim_resume != nullptr) {
            kxsim_resume();
        }
    }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;
};

}  // namespace kxsim
