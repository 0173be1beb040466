#include "cli/child.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <thread>

#include "cli/argument_vector.hpp"
#include "output/standard_streams.hpp"

namespace kx::ctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNoChild = -1;
constexpr std::chrono::milliseconds kWaitStep{5};  // while a program without output goes on

// With no signal ignored. The process id, or kNoChild.
pid_t spawn(std::vector<std::string>& words, const Descriptor& out, int stream) {
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.get(), stream);
    pid_t child = kNoChild;
    const int reason = posix_spawnp(
        &child, words[0].c_str(), &actions, &attributes, argument_vector(words).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return reason == 0 ? child : kNoChild;
}

int milliseconds_until(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

enum class Reading { kEnded, kStopped, kLate };

Reading read_all(const Descriptor& in, const ChildReader& read, Clock::time_point deadline) {
    for (;;) {
        pollfd wanted{.fd = in.get(), .events = POLLIN, .revents = 0};
        const int ready = poll(&wanted, 1, milliseconds_until(deadline));
        if (ready == 0) {
            return Reading::kLate;
        }
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready > 0 && (wanted.revents & POLLIN) == 0) {
            return Reading::kEnded;
        }
        if (ready < 0 || !read(in)) {
            return Reading::kStopped;
        }
    }
}

// Whether the child ended before the deadline.
bool reap(pid_t child, int& status, Clock::time_point deadline) {
    for (;;) {
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child || (ended < 0 && errno != EINTR)) {
            return true;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(kWaitStep);
    }
}

void kill_group(pid_t child) {
    kill(-child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

int run_child(
    std::vector<std::string> words, const ChildReader& read, std::chrono::milliseconds limit,
    int stream) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return kNoChild;
    }
    Descriptor in(ends[0]);
    Descriptor out(ends[1]);
    const pid_t child = spawn(words, out, stream);
    if (child == kNoChild) {
        return kNoChild;
    }
    out.reset();
    const Clock::time_point deadline = Clock::now() + limit;
    const Reading reading = read_all(in, read, deadline);
    in.reset();  // a program that still writes gets a closed pipe
    int status = 0;
    if (reading == Reading::kLate || !reap(child, status, deadline)) {
        kill_group(child);
        complain(fmt::format(
            "Killed after {} seconds: {}", std::chrono::duration<double>(limit).count(),
            words.back()));
        return kNoChild;
    }
    if (reading == Reading::kStopped) {
        return kNoChild;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace kx::ctl
