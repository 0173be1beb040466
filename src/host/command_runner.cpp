// Stand-in for the agent's runner of shell commands.
#include <kxlinhw/host.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>

#include "support/handle.hpp"

namespace {

int exit_code(int status) {
    if (status == -1) {
        return -1;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

__attribute__((weak)) BridgeUtils* BridgeUtils::ctrl = nullptr;

// Agents define this function with the command by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
__attribute__((weak)) int BridgeUtils::getOutput(std::string command, std::string& output) {
    kx::Pipe pipe(popen(command.c_str(), "re"));
    if (!pipe) {
        return -1;
    }
    std::array<char, 4096> chunk;
    while (const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), pipe.get())) {
        output.append(chunk.data(), got);
    }
    const bool failed = std::ferror(pipe.get()) != 0;
    const int code = exit_code(pclose(pipe.release()));
    return failed ? -1 : code;
}
