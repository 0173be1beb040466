#include "output/standard_streams.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "files/descriptor.hpp"
#include "output/printable.hpp"

namespace kx::ctl {
namespace {

// The kernel assigns the lowest free number, so opening in ascending order fills the gaps. The
// direction is wrong on purpose: using a descriptor that was closed still fails.
void fill_hole(int descriptor, int wrong_direction) {
    if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
        static_cast<void>(open("/dev/null", wrong_direction));
    }
}

}  // namespace

void prepare_standard_streams() {
    fill_hole(STDIN_FILENO, O_WRONLY);
    fill_hole(STDOUT_FILENO, O_RDONLY);
    fill_hole(STDERR_FILENO, O_RDONLY);
    std::signal(SIGPIPE, SIG_IGN);
}

void restore_signal_defaults() { std::signal(SIGPIPE, SIG_DFL); }

void complain(std::string_view line) {
    // When standard error cannot be written, there is nowhere to report it.
    static_cast<void>(write_text(STDERR_FILENO, fmt::format("kxctl: {}\n", printable(line))));
}

}  // namespace kx::ctl
