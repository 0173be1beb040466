// Runs kxctl and kills it at one of its system calls.
#pragma once

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "kxctl/process.hpp"

namespace test {

// Starts kxctl and kills it when it enters its nth system call; 0: never. Returns how many it
// entered.
inline unsigned run_killed(std::vector<std::string> words, unsigned nth) {
    words.insert(words.begin(), KXCTL_PROGRAM);
    const std::vector<char*> arguments = detail::pointers(words);
    const pid_t child = fork();
    if (child == 0) {
        const int nothing = open("/dev/null", O_RDWR);
        dup2(nothing, STDIN_FILENO);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    unsigned entered = 0;
    bool entering = true;
    int status = 0;
    int signal = 0;
    while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        constexpr int kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
        if (entered == 0) {
            ptrace(PTRACE_SETOPTIONS, child, nullptr, kOptions);
        }
        if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
            entered += entering ? 1 : 0;
            if (entering && entered == nth) {
                kill(child, SIGKILL);
            }
            entering = !entering;
            signal = 0;
        } else {
            signal = WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
        }
        ptrace(PTRACE_SYSCALL, child, nullptr, signal);
    }
    return entered;
}

}  // namespace test
