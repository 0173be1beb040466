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

#include "state/session.hpp"

namespace kxsim {
namespace {

namespace fs = std::filesystem;

constexpr char kLibrary[] = "libkxsim.so";

// Beside the program in a build tree, in the library directory where it is installed.
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

// A program that was built with AddressSanitizer insists on its runtime coming first; behind this
// library it works as well.
void allow_sanitized_programs() {
    add_to_environment("ASAN_OPTIONS", "verify_asan_link_order=0", ':', false);
}

// What a terminal or a service manager sends to stop the run goes to the command; its end is what
// the caller waits for.
volatile std::sig_atomic_t running_child = 0;

void pass_on(int signal) {
    if (running_child > 0) {
        ::kill(static_cast<pid_t>(running_child), signal);
    }
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
}

[[noreturn]] void become(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    ::execvp(arguments.front(), arguments.data());
    const int reason = errno;
    std::fprintf(stderr, "kxsim: %s: %s\n", command.front().c_str(), std::strerror(reason));
    ::_exit(reason == ENOENT ? 127 : 126);
}

int wait_for(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "waiting for the command");
        }
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int run_on_host(const std::string& root, const std::vector<std::string>& command) {
    const std::string library = preload_library();
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "starting the command");
    }
    if (child == 0) {
        ::setenv(state::kRootVariable, root.c_str(), 1);
        add_to_environment("LD_PRELOAD", library, ':', true);
        allow_sanitized_programs();
        become(command);
    }
    running_child = child;
    handle(SIGINT, SIG_IGN);  // the terminal sends these to the command too
    handle(SIGQUIT, SIG_IGN);
    handle(SIGTERM, pass_on);
    handle(SIGHUP, pass_on);
    const int code = wait_for(child);
    running_child = 0;
    return code;
}

}  // namespace kxsim
