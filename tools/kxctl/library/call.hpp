// Calls into the library, whose functions print diagnostics on standard output as they work.
#pragma once

#include <string>
#include <string_view>

#include "files/descriptor.hpp"

namespace kx::ctl {

// Show what the library prints and logs, on standard error. At first nothing is shown.
void show_library_messages();
[[nodiscard]] bool library_messages_shown();

// What the library logged last as a failure, during the latest LibraryCall; empty when nothing.
void note_library_failure(const std::string& message);
[[nodiscard]] const std::string& library_failure();

// End the process as a failure, with this line on the user's standard error; without memory, from
// within a call.
[[noreturn]] void end_with(std::string_view line);

// While it lives, a descriptor leads to where another one does.
class Redirection {
public:
    Redirection(int descriptor, const Descriptor& target);
    ~Redirection();
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

    // Where the descriptor led before.
    [[nodiscard]] int saved() const { return saved_.get(); }

private:
    int descriptor_;
    Descriptor saved_;
};

// While it lives, what the library and the commands that it runs print is kept out of kxctl's own
// output: standard output goes to standard error when library messages are shown; otherwise both
// go nowhere. Throws Failure when the process has no descriptor left. A library that ends the
// process (libpci does, without memory for its handle) does not do so without a line on standard
// error.
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
};

// The result of a function, called with its messages kept out of the way.
template <class Function>
auto call_library(Function function) {
    const LibraryCall call;
    return function();
}

}  // namespace kx::ctl
