#include "library/answer_limit.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <csignal>
#include <string>
#include <utility>

#include "files/descriptor.hpp"
#include "files/scratch_directory.hpp"
#include "library/call.hpp"

namespace kx::ctl {
namespace {

// For the caller to stop, a second at most.
constexpr int kMostTries = 100;
constexpr std::chrono::milliseconds kTryTime{10};

FailureReporter& reporter() {
    static FailureReporter function = [](const Failure& failure) { return failure.code(); };
    return function;
}

std::atomic<bool> caller_stopped = false;

void stay(int) {
    caller_stopped = true;
    for (;;) {
        pause();
    }
}

// Otherwise the library would go on when its program is killed, and start the next one.
void stop(pthread_t caller) {
    struct sigaction action {};
    action.sa_handler = stay;
    sigaction(SIGUSR1, &action, nullptr);
    pthread_kill(caller, SIGUSR1);
    for (int tries = 0; tries < kMostTries && !caller_stopped; ++tries) {
        std::this_thread::sleep_for(kTryTime);
    }
}

// With the groups that they lead. The caller may have stopped within an allocation, so that nothing
// is allocated here.
void kill_children(const char* list) {
    std::array<char, 4096> text;
    const Descriptor file(open(list, O_RDONLY | O_CLOEXEC));
    const ssize_t size = file ? read(file.get(), text.data(), text.size()) : 0;
    const char* const end = text.data() + std::max<ssize_t>(size, 0);
    pid_t child = 0;
    for (const char* at = text.data(); at < end; ++at) {  // each number is followed by a blank
        const auto [rest, error] = std::from_chars(at, end, child);
        if (error == std::errc()) {
            kill(getpgid(child) == child ? -child : child, SIGKILL);
        }
        at = rest;
    }
}

// Signals are for the main thread.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

}  // namespace

void report_late_answers_to(FailureReporter function) { reporter() = std::move(function); }

AnswerLimit::AnswerLimit(Failure failure, std::chrono::milliseconds limit)
    : failure_(std::move(failure)), caller_(pthread_self()) {
    const SignalsBlocked blocked;
    watchdog_ = std::thread([this, limit] { watch(limit); });
}

AnswerLimit::~AnswerLimit() {
    {
        const std::lock_guard lock(mutex_);
        answered_ = true;
    }
    changed_.notify_one();
    watchdog_.join();
}

// An answer that comes during the report waits for the lock, and so for the end of the process.
void AnswerLimit::watch(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, limit, [this] { return answered_; })) {
        return;
    }
    const std::string children = fmt::format("/proc/self/task/{}/children", getpid());
    restore_output();
    const ExitCode code = reporter()(failure_);
    stop(caller_);
    kill_children(children.c_str());
    remove_scratch_directory();
    _exit(static_cast<int>(code));
}

}  // namespace kx::ctl
