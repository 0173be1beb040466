// A program that clears its environment and then starts another program by one of the C library's
// functions: starter FUNCTION PROGRAM [ARGUMENT]. It prints the error when that fails.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

char* no_environment[] = {nullptr};
char** words = nullptr;  // PROGRAM [ARGUMENT]
const char* program = nullptr;

using SpawnFunction = decltype(posix_spawn);

int spawn(SpawnFunction* start) {
    pid_t child = 0;
    errno = start(&child, program, nullptr, nullptr, words, no_environment);
    return errno == 0 && waitpid(child, nullptr, 0) == child ? 0 : -1;
}

int copy_output(const char* command) {
    std::FILE* const pipe = popen(command, "r");
    char line[100];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        std::fputs(line, stdout);
    }
    return pipe == nullptr ? -1 : pclose(pipe);
}

std::string command_line() {
    return "'" + std::string(program) + "' " + (words[1] == nullptr ? "" : words[1]);
}

int open_program(int flags) { return open(program, flags | O_CLOEXEC); }

const std::map<std::string, int (*)()> kFunctions = {
    {"execl", [] { return execl(program, words[0], words[1], nullptr); }},
    {"execle", [] { return execle(program, words[0], words[1], nullptr, no_environment); }},
    {"execlp", [] { return execlp(program, words[0], words[1], nullptr); }},
    {"execv", [] { return execv(program, words); }},
    {"execve", [] { return execve(program, words, no_environment); }},
    {"execve_null", [] { return execve(program, words, nullptr); }},
    {"execveat", [] { return execveat(AT_FDCWD, program, words, no_environment, 0); }},
    {"execveat_open",
     [] { return execveat(open_program(O_PATH), "", words, no_environment, AT_EMPTY_PATH); }},
    {"execvp", [] { return execvp(program, words); }},
    {"execvpe", [] { return execvpe(program, words, no_environment); }},
    {"fexecve", [] { return fexecve(open_program(O_RDONLY), words, no_environment); }},
    {"popen", [] { return copy_output(command_line().c_str()); }},
    {"posix_spawn", [] { return spawn(posix_spawn); }},
    {"posix_spawnp", [] { return spawn(posix_spawnp); }},
    {"system", [] { return std::system(command_line().c_str()); }},
};

}  // namespace

int main(int count, char** arguments) {
    if (count < 3 || kFunctions.count(arguments[1]) == 0) {
        return 2;
    }
    program = arguments[2];
    words = arguments + 2;
    clearenv();
    if (kFunctions.at(arguments[1])() != 0) {
        std::fprintf(stderr, "%s\n", std::strerror(errno));
        return 1;
    }
    return 0;
}
