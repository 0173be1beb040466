#include "kxsim/start.hpp"

#include <dlfcn.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "process/preloadable.hpp"

namespace kxsim {
namespace {

// The exit codes of a shell.
constexpr int kCannotBeRun = 126;
constexpr int kNotFound = 127;

[[noreturn]] void give_up(const char* program, const std::string& reason, int code) {
    std::fprintf(stderr, "kxsim: %s: %s\n", program, reason.c_str());
    ::_exit(code);
}

[[noreturn]] void give_up_on_exec(const char* program) {
    const int reason = errno;
    give_up(program, std::strerror(reason), reason == ENOENT ? kNotFound : kCannotBeRun);
}

}  // namespace

void start(const std::vector<std::string>& command) {
    // Set-user-id programs run with the rights of the caller. Otherwise the loader would not put
    // the library into them.
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (process::would_leave_host(command.front().c_str(), process::Search::kPath)) {
        ::_exit(kCannotBeRun);
    }
    std::vector<char*> arguments = {const_cast<char*>("kxsim"), const_cast<char*>(kStartStep)};
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    ::execv("/proc/self/exe", arguments.data());
    give_up_on_exec("/proc/self/exe");
}

void start_step(char** command) {
    if (::dlsym(RTLD_DEFAULT, "kxsim_attach") == nullptr) {
        give_up(
            *command,
            "not run, because libkxsim.so could not be loaded: it would run on the real machine",
            kCannotBeRun);
    }
    ::execvp(*command, command);
    give_up_on_exec(*command);
}

}  // namespace kxsim
