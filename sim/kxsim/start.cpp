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

}  // namespace

void require_library(const std::string& library, const char* program) {
    if (::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
        give_up(
            program,
            "not run, because libkxsim.so could not be loaded: it would run on the real machine",
            kCannotBeRun);
    }
}

void start(const std::vector<std::string>& command) {
    // Set-user-id programs run with the rights of the caller. Otherwise the loader would not put
    // the library into them.
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const char* const program = command.front().c_str();
    if (process::would_leave_host(program, process::Search::kPath)) {
        ::_exit(kCannotBeRun);
    }
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    ::execvp(program, arguments.data());
    const int reason = errno;
    give_up(program, std::strerror(reason), reason == ENOENT ? kNotFound : kCannotBeRun);
}

}  // namespace kxsim
