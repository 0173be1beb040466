// The builder's own calls are made on the real machine: neither redirected, counted nor made to
// fail, whatever host is attached.
#pragma once

#include <kxsim/preload.h>

// Programs that only build hosts do not link the library that puts hosts under processes.
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
