// Calls of libvirt, all by one function. A connection whose daemon ended is a closed pipe: writing
// to it raises SIGPIPE, which ends an agent that does not expect it.
#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>
#include <type_traits>

namespace kx::vm {

// SIGPIPE is blocked in this thread, and one that came meanwhile is taken. One that was pending
// before stays so. Leaves errno alone.
class PipeSignalBlock {
public:
    PipeSignalBlock() {
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~PipeSignalBlock() {
        const int reason = errno;
        constexpr timespec kNow{};
        while (!was_pending_ && sigtimedwait(&signal_, nullptr, &kNow) == -1 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = reason;
    }
    PipeSignalBlock(const PipeSignalBlock&) = delete;
    PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;

private:
    static sigset_t pipe_signal() {
        sigset_t signal;
        sigemptyset(&signal);
        sigaddset(&signal, SIGPIPE);
        return signal;
    }

    const sigset_t signal_ = pipe_signal();
    sigset_t before_{};
    bool was_pending_ = false;
};

// What a function of libvirt answers.
template <class Result, class... Parameters>
Result libvirt(Result (*function)(Parameters...), std::type_identity_t<Parameters>... arguments) {
    const PipeSignalBlock block;
    return function(arguments...);
}

}  // namespace kx::vm
