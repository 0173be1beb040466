// Runs a program as a user would: takes words; returns exit code, standard output and standard
// error.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace test {

struct Result {
    int exit;  // 128 plus the signal when one ended the program
    std::string out;
    std::string err;
};

struct Setup {
    std::string program = KXCTL_PROGRAM;
    std::vector<std::string> environment = {};  // "NAME=value", in front of the test's own
    int standard_output = -1;                   // a descriptor to use instead of collecting
};

namespace detail {

// A file in memory; a program that prints a lot never has to wait for its reader.
class Sink {
public:
    Sink() : descriptor_(memfd_create("sink", MFD_CLOEXEC)) {}
    ~Sink() { close(descriptor_); }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    int get() const { return descriptor_; }

    std::string text() const {
        std::string text;
        std::array<char, 4096> chunk;
        off_t at = 0;
        for (ssize_t got; (got = pread(descriptor_, chunk.data(), chunk.size(), at)) > 0;) {
            text.append(chunk.data(), static_cast<std::size_t>(got));
            at += got;
        }
        return text;
    }

private:
    int descriptor_;
};

inline std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

// The test's own variables, without those that change what kxctl prints. A program built with
// AddressSanitizer has to accept that the simulated host is loaded before its runtime.
inline std::vector<std::string> environment_of(const Setup& setup) {
    std::vector<std::string> variables = setup.environment;
    if (std::getenv("ASAN_OPTIONS") == nullptr) {
        variables.emplace_back("ASAN_OPTIONS=verify_asan_link_order=0");
    }
    for (char** own = environ; *own != nullptr; ++own) {
        const std::string_view variable = *own;
        const std::string_view name = variable.substr(0, variable.find('=') + 1);
        bool hidden = name == "NO_COLOR=";
        for (const std::string& added : setup.environment) {
            hidden = hidden || added.starts_with(name);
        }
        if (!hidden) {
            variables.emplace_back(variable);
        }
    }
    return variables;
}

}  // namespace detail

inline Result run(std::vector<std::string> words, const Setup& setup = {}) {
    words.insert(words.begin(), setup.program);
    std::vector<std::string> environment = detail::environment_of(setup);
    const detail::Sink out;
    const detail::Sink err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(
        &actions, setup.standard_output == -1 ? out.get() : setup.standard_output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.get(), STDERR_FILENO);
    pid_t child = -1;
    const int reason = posix_spawnp(
        &child, words[0].c_str(), &actions, nullptr, detail::pointers(words).data(),
        detail::pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (reason != 0) {
        throw std::runtime_error(words[0] + ": " + std::strerror(reason));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {
        WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), out.text(), err.text()};
}

}  // namespace test
