// Stand-in for the agent's wrapper of the maker's command-line tool: runs "zfabtool" from PATH
// without a shell and collects its standard output in the management buffer.
#include <fcntl.h>
#include <kxlinhw/host.h>
#include <kxlinhw/query.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "support/handle.hpp"
#include "support/text.hpp"

namespace {

constexpr std::size_t kArgumentWidth = 64;  // texts stand in fields of the agent's argument block

class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    void redirect(int from, int to) { posix_spawn_file_actions_adddup2(&actions_, from, to); }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
};

std::vector<std::string> texts_of(int count, char** arguments) {
    std::vector<std::string> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        texts.emplace_back(kx::field_text(arguments[k], kArgumentWidth));
    }
    return texts;
}

// Start the tool with its standard output in `out`. The pid, or -1.
pid_t start(std::vector<std::string>& texts, const kx::Descriptor& out) {
    std::vector<char*> vector;
    vector.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        vector.push_back(text.data());
    }
    vector.push_back(nullptr);
    SpawnActions actions;
    actions.redirect(out.get(), STDOUT_FILENO);
    pid_t pid = -1;
    return posix_spawnp(&pid, vector[0], actions.get(), nullptr, vector.data(), environ) == 0 ? pid
                                                                                              : -1;
}

bool make_room() { return g_MXdataBufferOffset < g_MXdataBufferSize || ReallocMXbuffer() == 0; }

// Read everything the tool prints into the management buffer.
bool collect(const kx::Descriptor& in) {
    while (g_MXdataBuffer != nullptr && make_room()) {
        const auto room = static_cast<std::size_t>(g_MXdataBufferSize - g_MXdataBufferOffset);
        const ssize_t got = read(in.get(), g_MXdataBuffer + g_MXdataBufferOffset, room);
        if (got == 0) {
            return true;
        }
        if (got > 0) {
            g_MXdataBufferOffset += static_cast<int32_t>(got);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return false;
}

bool ended_well(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

extern "C" __attribute__((weak)) int mx_cmd_wraper(int count, char** arguments) try {
    if (count < 1 || arguments == nullptr) {
        return -1;
    }
    std::vector<std::string> texts = texts_of(count, arguments);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    pid_t pid = -1;
    bool complete = false;
    {
        const kx::Descriptor in(ends[0]);
        {
            const kx::Descriptor out(ends[1]);  // both are owned before anything can throw
            pid = start(texts, out);
        }
        complete = pid != -1 && collect(in);
    }  // a tool that still writes after a failed collection meets a closed pipe, not a deadlock
    return pid != -1 && ended_well(pid) && complete ? 0 : -1;
} catch (const std::bad_alloc&) {
    return -1;
}
