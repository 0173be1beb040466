#include "files/signals_held.hpp"

#include <initializer_list>

namespace kx::ctl {

SignalsHeld::SignalsHeld() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
        sigaddset(&held, signal);
    }
    sigprocmask(SIG_BLOCK, &held, &before_);
}

SignalsHeld::~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace kx::ctl
