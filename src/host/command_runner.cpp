// The default runner of shell commands, for agents without their own.
//
// A first shell runs the command in a second one and writes its exit status into a pipe. Agents
// that ignore SIGCHLD or wait for any child lose the status of waitpid.
#include <kxlinhw/host.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string>
#include <vector>

#include "host/child.hpp"
#include "support/handle.hpp"

namespace {

using kx::Descriptor;

constexpr int kNotRun = -1;

// The library searches the output of commands for English words.
constexpr int kStatusNumber = 9;  // the last that every shell can name
constexpr char kFirstShell[] = R"(LC_ALL=C /bin/sh -c "$1" 9>&-; echo $? >&9)";

// False when a read fails.
bool append_all(const Descriptor& pipe, std::string& text) {
    std::array<char, 4096> chunk;
    for (;;) {
        const ssize_t got = read(pipe.get(), chunk.data(), chunk.size());
        if (got == 0) {
            return true;
        }
        if (got > 0) {
            text.append(chunk.data(), static_cast<std::size_t>(got));
        } else if (errno != EINTR) {
            return false;
        }
    }
}

// The status that the first shell wrote, or kNotRun when it wrote none.
int status_from(const Descriptor& pipe) {
    std::string text;
    int status = kNotRun;
    if (append_all(pipe, text)) {
        std::from_chars(text.data(), text.data() + text.size(), status);
    }
    return status;
}

bool start(
    kx::host::Child& child, const std::string& command, const Descriptor& output,
    const Descriptor& status) {
    kx::host::SpawnPlan plan;
    plan.open_null_device(STDIN_FILENO);
    plan.open_null_device(STDERR_FILENO);
    plan.redirect(output, STDOUT_FILENO);
    plan.redirect(status, kStatusNumber);
    return child.start(plan, {"/bin/sh", "-c", kFirstShell, "sh", command});
}

}  // namespace

__attribute__((weak)) BridgeUtils* BridgeUtils::ctrl = nullptr;

// Agents define this function with the command by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
__attribute__((weak)) int BridgeUtils::getOutput(std::string command, std::string& output) {
    kx::host::Child child;  // outlives the pipes: a child that still writes gets a closed pipe
    kx::host::PipeEnds out = kx::host::open_pipe();
    kx::host::PipeEnds status = kx::host::open_pipe();
    if (!out || !status || !start(child, command, out.write, status.write)) {
        return kNotRun;
    }
    out.write = Descriptor();
    status.write = Descriptor();
    return append_all(out.read, output) ? status_from(status.read) : kNotRun;
}
