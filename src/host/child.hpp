// Child processes of the default services, and the pipes from them.
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "support/handle.hpp"

namespace kx::host {

// Both ends are close-on-exec. Without free descriptors an end is empty.
struct PipeEnds {
    Descriptor read;
    Descriptor write;

    explicit operator bool() const { return read && write; }
};

[[nodiscard]] PipeEnds open_pipe();

// The changes for a child: its descriptors, and the default action of SIGCHLD, which a shell needs
// to wait.
class SpawnPlan {
public:
    SpawnPlan();
    ~SpawnPlan();
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    void redirect(const Descriptor& from, int to);
    // Descriptors that this process has closed and the child needs.
    void open_null_device(int number);

    // Start a program from PATH with these words. Returns its process id, or -1.
    [[nodiscard]] pid_t start(std::vector<std::string>& words) const;

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// The destructor waits for the child.
class Child {
public:
    Child() = default;
    ~Child() { static_cast<void>(wait()); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] bool start(const SpawnPlan& plan, std::vector<std::string> words) {
        pid_ = plan.start(words);
        return pid_ != -1;
    }
    // How it ended, as waitpid reports it. Nothing when it was not started, or when its status is
    // lost because the agent ignores SIGCHLD or waits for any child.
    std::optional<int> wait();

private:
    pid_t pid_ = -1;
};

}  // namespace kx::host
