#include "library/call.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "failure/failure.hpp"
#include "output/standard_streams.hpp"

namespace kx::ctl {
namespace {

bool messages_shown = false;

std::string& last_failure() {
    static std::string message;
    return message;
}

int must(int result) {
    if (result == -1) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format("Cannot redirect the library's messages: {}", std::strerror(errno)));
    }
    return result;
}

Descriptor duplicate(int descriptor) {
    return Descriptor(must(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)));
}

Descriptor message_target() {
    return messages_shown ? duplicate(STDERR_FILENO)
                          : Descriptor(must(open("/dev/null", O_WRONLY | O_CLOEXEC)));
}

// The library prints through stdio, so flush its buffers before the descriptors change.
void flush_stdio() {
    static_cast<void>(std::fflush(stdout));
    static_cast<void>(std::fflush(stderr));
}

// The user's standard output and error, also during a call.
int standard_output = STDOUT_FILENO;
int error_output = STDERR_FILENO;

void tell_of_sudden_end() {
    if (error_output != STDERR_FILENO) {
        end_with("kxctl: A library ended the process; --verbose shows what it says\n");
    }
}

void watch_for_sudden_end() {
    static const bool watching = std::atexit(tell_of_sudden_end) == 0;
    static_cast<void>(watching);
}

}  // namespace

void show_library_messages() {
    messages_shown = true;
    // In the order of the events, between the lines of the logger.
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, 0));
}

bool library_messages_shown() { return messages_shown; }

void end_with(std::string_view line) {
    static_cast<void>(write_text(error_output, line));
    _exit(static_cast<int>(ExitCode::kFailed));
}

void note_library_failure(const std::string& message) { last_failure() = message; }

const std::string& library_failure() { return last_failure(); }

void restore_output() {
    dup2(standard_output, STDOUT_FILENO);
    dup2(error_output, STDERR_FILENO);
}

Redirection::Redirection(int descriptor, const Descriptor& target)
    : descriptor_(descriptor), saved_(duplicate(descriptor)) {
    must(dup2(target.get(), descriptor_));
}

Redirection::~Redirection() { dup2(saved_.get(), descriptor_); }

LibraryCall::LibraryCall()
    : target_((flush_stdio(), message_target())),
      output_(STDOUT_FILENO, target_),
      errors_(STDERR_FILENO, target_) {
    last_failure().clear();
    watch_for_sudden_end();
    standard_output = output_.saved();
    error_output = errors_.saved();
}

LibraryCall::~LibraryCall() {
    standard_output = STDOUT_FILENO;
    error_output = STDERR_FILENO;
    flush_stdio();
}

}  // namespace kx::ctl
