// Signals that wait until a change is whole.
#pragma once

#include <csignal>

namespace kx::ctl {

// A partly written flash cannot boot, and half of a change of settings has to be taken back: the
// signals that end the process wait while this exists.
class SignalsHeld {
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before_;
};

}  // namespace kx::ctl
