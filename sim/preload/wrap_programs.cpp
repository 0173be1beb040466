// Starting programs. A program that would not load this library is refused, and an environment
// without the library or the session gets both: so the program runs on the same simulated host.
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "preload/interception.hpp"
#include "preload/session_environment.hpp"
#include "process/path_text.hpp"
#include "process/preloadable.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face

// The errno with which a program is not started, or 0. Shells try to interpret a program that is
// refused with ENOEXEC.
int refusal(const char* command, Search search, char* const* environment) {
    if (host() == nullptr || command == nullptr) {
        return 0;
    }
    const KeepErrno keep;
    if (!has_session(environment) && !can_name_library()) {
        complain("kxsim: ");
        complain(command);
        complain(" would run on the real machine: its environment has no libkxsim.so\n");
        return EACCES;
    }
    return would_leave_host(command, search) ? EACCES : 0;
}

int run_file(const char* path, char* const* arguments, char* const* environment) {
    if (const int error = refusal(path, Search::kNone, environment); error != 0) {
        return refuse<int>(error);
    }
    return with_session(environment, [&](char* const* whole) {
        return next<"execve", decltype(::execve)>()(path, arguments, whole);
    });
}

int run_command(const char* command, char* const* arguments, char* const* environment) {
    if (const int error = refusal(command, Search::kPath, environment); error != 0) {
        return refuse<int>(error);
    }
    return with_session(environment, [&](char* const* whole) {
        return next<"execvpe", decltype(::execvpe)>()(command, arguments, whole);
    });
}

// Call `run` with the arguments of execl, which end with a null pointer, and with the list itself,
// where an environment may follow.
template <class Run>
int with_arguments(const char* first, va_list list, Run run) {
    va_list counted;
    va_copy(counted, list);
    std::size_t count = 1;
    while (first != nullptr && va_arg(counted, const char*) != nullptr) {
        ++count;
    }
    va_end(counted);
    auto** const arguments = static_cast<char**>(__builtin_alloca((count + 1) * sizeof(char*)));
    arguments[0] = const_cast<char*>(first);
    for (std::size_t k = 1; first != nullptr && k <= count; ++k) {
        arguments[k] = va_arg(list, char*);
    }
    return run(arguments);
}

// The path of an open program, or of one that is named below an open directory.
void name_open_file(int descriptor, const char* path, PathText& name) {
    char start[32];
    std::snprintf(start, sizeof start, "/proc/self/fd/%d", descriptor);
    if (*path != '/' && descriptor != AT_FDCWD) {
        name.append(start);
        name.append(*path == '\0' ? "" : "/");
    }
    name.append(path);
}

// A program may call them on a stack that is too small for looking them up.
__attribute__((constructor)) void look_up_early() {
    static_cast<void>(next<"execve", decltype(::execve)>());
    static_cast<void>(next<"execvpe", decltype(::execvpe)>());
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

int execve(const char* path, char* const arguments[], char* const environment[]) noexcept {
    return run_file(path, arguments, environment);
}
int execv(const char* path, char* const arguments[]) noexcept {
    return run_file(path, arguments, environ);
}
int execvpe(const char* command, char* const arguments[], char* const environment[]) noexcept {
    return run_command(command, arguments, environment);
}
int execvp(const char* command, char* const arguments[]) noexcept {
    return run_command(command, arguments, environ);
}

int execl(const char* path, const char* argument, ...) noexcept {
    va_list list;
    va_start(list, argument);
    const int result = with_arguments(argument, list, [path](char* const* arguments) {
        return run_file(path, arguments, environ);
    });
    va_end(list);
    return result;
}
int execlp(const char* command, const char* argument, ...) noexcept {
    va_list list;
    va_start(list, argument);
    const int result = with_arguments(argument, list, [command](char* const* arguments) {
        return run_command(command, arguments, environ);
    });
    va_end(list);
    return result;
}
int execle(const char* path, const char* argument, ...) noexcept {
    va_list list;
    va_start(list, argument);
    const int result = with_arguments(argument, list, [path, &list](char* const* arguments) {
        return run_file(path, arguments, va_arg(list, char* const*));
    });
    va_end(list);
    return result;
}

int execveat(
    int directory, const char* path, char* const arguments[], char* const environment[],
    int flags) noexcept {
    PathText name;
    name_open_file(directory, path, name);
    if (const int error = refusal(name.c_str(), Search::kNone, environment); error != 0) {
        return refuse<int>(error);
    }
    return with_session(environment, [&](char* const* whole) {
        return next<"execveat", decltype(::execveat)>()(directory, path, arguments, whole, flags);
    });
}
int fexecve(int descriptor, char* const arguments[], char* const environment[]) noexcept {
    PathText name;
    name_open_file(descriptor, "", name);
    if (const int error = refusal(name.c_str(), Search::kNone, environment); error != 0) {
        return refuse<int>(error);
    }
    return with_session(environment, [&](char* const* whole) {
        return next<"fexecve", decltype(::fexecve)>()(descriptor, arguments, whole);
    });
}

int posix_spawn(
    pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
    const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]) {
    if (const int error = refusal(path, Search::kNone, environment); error != 0) {
        return error;
    }
    return with_session(environment, [&](char* const* whole) {
        return next<"posix_spawn", decltype(::posix_spawn)>()(
            child, path, actions, attributes, arguments, whole);
    });
}
int posix_spawnp(
    pid_t* child, const char* command, const posix_spawn_file_actions_t* actions,
    const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]) {
    if (const int error = refusal(command, Search::kPath, environment); error != 0) {
        return error;
    }
    return with_session(environment, [&](char* const* whole) {
        return next<"posix_spawnp", decltype(::posix_spawnp)>()(
            child, command, actions, attributes, arguments, whole);
    });
}

// The shell of the C library; the shell's own programs come through the functions above.
int system(const char* command) {
    complete_environment();
    return next<"system", decltype(::system)>()(command);
}
FILE* popen(const char* command, const char* mode) {
    complete_environment();
    return next<"popen", decltype(::popen)>()(command, mode);
}

#pragma GCC visibility pop

}  // extern "C"
