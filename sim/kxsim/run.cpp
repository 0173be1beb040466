#include "kxsim/run.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "host/preload_path.hpp"
#include "kxsim/start.hpp"
#include "state/session.hpp"

namespace kxsim {
namespace {

namespace fs = std::filesystem;

constexpr char kLibrary[] = "libkxsim.so";
constexpr int kSignalled = 128;  // as in a shell: 128 plus the signal

// Next to the program in a build tree, in the library directory of an installation.
fs::path preload_library() {
    const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& place :
         {beside / kLibrary, beside / ".." / KXSIM_LIBRARY_DIRECTORY / kLibrary}) {
        if (fs::exists(place)) {
            return fs::canonical(place);
        }
    }
    throw std::runtime_error(std::string("cannot find ") + kLibrary + " for the command to load");
}

void add_to_environment(const char* name, const std::string& value, char separator, bool in_front) {
    const char* const before = std::getenv(name);
    std::string whole = value;
    if (before != nullptr && *before != '\0') {
        whole = in_front ? value + separator + before : before + (separator + value);
    }
    ::setenv(name, whole.c_str(), 1);
}

// A program that was built with AddressSanitizer requires its runtime to be loaded first; after
// this library it works as well.
void allow_sanitized_programs() {
    add_to_environment("ASAN_OPTIONS", "verify_asan_link_order=0", ':', false);
}

// The signals with which a terminal or a service manager stops the run.
constexpr int kStopSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t running_child = 0;
volatile std::sig_atomic_t stop_signal = 0;

// While the command runs, it handles the signals, and the caller waits for its end. (A terminal
// sends its signals to the command too.)
void on_stop_signal(int signal) {
    if (running_child == 0) {
        stop_signal = signal;
    } else if (signal == SIGTERM || signal == SIGHUP) {
        ::kill(static_cast<pid_t>(running_child), signal);
    }
}

// The previous handler of a signal.
void leave_stop_signals() {
    for (const int signal : kStopSignals) {
        struct sigaction action {};
        ::sigaction(signal, nullptr, &action);
        if (action.sa_handler == on_stop_signal) {
            ::signal(signal, SIG_DFL);
        }
    }
}

int wait_for(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "waiting for the command");
        }
    }
    return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

// No stop signal arrives between fork and the moment when the handler knows the child.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : kStopSignals) {
            sigaddset(&held, signal);
        }
        ::sigprocmask(SIG_BLOCK, &held, &before_);
    }
    ~SignalsHeld() { release(); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

    void release() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

}  // namespace

void catch_stop_signals() {
    for (const int signal : kStopSignals) {
        struct sigaction before {};
        ::sigaction(signal, nullptr, &before);
        if (before.sa_handler == SIG_IGN) {
            continue;  // and so it is for the command
        }
        struct sigaction action {};
        action.sa_handler = on_stop_signal;  // without SA_RESTART: a waiting call ends
        ::sigaction(signal, &action, nullptr);
    }
}

int code_of_stop() { return stop_signal == 0 ? 0 : kSignalled + stop_signal; }

int run_on_host(const std::string& root, const std::vector<std::string>& command) {
    const PreloadPath library(preload_library());
    SignalsHeld held;
    if (stop_signal != 0) {
        return code_of_stop();
    }
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "starting the command");
    }
    if (child == 0) {
        leave_stop_signals();
        held.release();
        // Without a session yet, so that the library has nothing to map.
        require_library(library.text(), command.front().c_str());
        ::setenv(state::kRootVariable, root.c_str(), 1);
        add_to_environment("LD_PRELOAD", library.text(), ':', true);
        allow_sanitized_programs();
        start(command);
    }
    running_child = child;
    held.release();
    const int code = wait_for(child);
    running_child = 0;
    return code;
}

}  // namespace kxsim
