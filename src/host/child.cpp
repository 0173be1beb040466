#include "host/child.hpp"
#include "support/paths.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

namespace kx::host {

PipeEnds open_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {};
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

SpawnPlan::SpawnPlan() {
    sigset_t by_default;
    sigemptyset(&by_default);
    sigaddset(&by_default, SIGCHLD);
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setsigdefault(&attributes_, &by_default);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
}

SpawnPlan::~SpawnPlan() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
}

void SpawnPlan::redirect(const Descriptor& from, int to) {
    posix_spawn_file_actions_adddup2(&actions_, from.get(), to);
}

void SpawnPlan::open_null_device(int number) {
    if (fcntl(number, F_GETFD) == -1) {
        posix_spawn_file_actions_addopen(&actions_, number, kx::kNullDevice, O_RDWR, 0);
    }
}

pid_t SpawnPlan::start(std::vector<std::string>& words) const {
    std::vector<char*> vector;
    vector.reserve(words.size() + 1);
    for (std::string& word : words) {
        vector.push_back(word.data());
    }
    vector.push_back(nullptr);
    pid_t pid = -1;
    const int reason =
        posix_spawnp(&pid, vector[0], &actions_, &attributes_, vector.data(), environ);
    return reason == 0 ? pid : -1;
}

std::optional<int> Child::wait() {
    const pid_t pid = std::exchange(pid_, -1);
    if (pid == -1) {
        return std::nullopt;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR) {
            return std::nullopt;
        }
    }
    return status;
}

}  // namespace kx::host
