// Calls of the library, whose functions print diagnostics on standard output.
#pragma once

#include <string>
#include <string_view>

#include "files/descriptor.hpp"
#include "library/host_watch.hpp"

namespace kx::ctl {

// Show what the library prints and logs, on standard error. At first nothing is shown.
void show_library_messages();
[[nodiscard]] bool library_messages_shown();

// The last failure that the library logged during the latest LibraryCall; empty when there was
// none.
void note_library_failure(const std::string& message);
[[nodiscard]] const std::string& library_failure();

// End the process as a failure, with this line on the user's standard error. Needs no memory, and
// may be called during a library call.
[[noreturn]] void end_with(std::string_view line);

// The user's standard output and error, also during a call that will not return.
void restore_output();

// While this object exists, a descriptor is redirected to the file of another one.
class Redirection {
public:
    Redirection(int descriptor, const Descriptor& target);
    ~Redirection();
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

    // The previous file of the descriptor.
    [[nodiscard]] int saved() const { return saved_.get(); }

private:
    int descriptor_;
    Descriptor saved_;
};

// While this object exists, the output of the library and of its commands is kept out of kxctl's
// output: when library messages are shown, standard output is redirected to standard error;
// otherwise both are dropped. Throws Failure when the process has no descriptor left. When a
// library ends the process (as libpci does without memory for its handle), a line appears on
// standard error.
class LibraryCall {
public:
    LibraryCall();
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;

private:
    Descriptor target_;
    Redirection output_;
    Redirection errors_;
    HostWatch watch_;
};

// The result of a function that is called with its messages redirected.
template <class Function>
auto call_library(Function function) {
    const LibraryCall call;
    return function();
}

}  // namespace kx::ctl
