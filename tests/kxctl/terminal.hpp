// kxctl on a pseudo-terminal; the test reads the screen and types.
#pragma once

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "kxctl/process.hpp"

namespace test {

class Terminal {
public:
    struct Setup {
        std::vector<std::string> environment = {};  // "NAME=value", in front of the test's own
        std::string directory = ".";
        unsigned short rows = 24;
    };

    explicit Terminal(std::vector<std::string> words) : Terminal(std::move(words), Setup{}) {}
    Terminal(std::vector<std::string> words, const Setup& setup) {
        words.insert(words.begin(), KXCTL_PROGRAM);
        test::Setup process;
        process.environment = setup.environment;
        std::vector<std::string> environment = detail::environment_of(process);
        const std::vector<char*> arguments = detail::pointers(words);
        const std::vector<char*> variables = detail::pointers(environment);
        const winsize size{.ws_row = setup.rows, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
        process_ = forkpty(&terminal_, nullptr, nullptr, &size);
        if (process_ == 0) {
            if (chdir(setup.directory.c_str()) == 0) {
                execve(arguments[0], arguments.data(), variables.data());
            }
            _exit(127);
        }
    }
    // Kills what has not ended.
    ~Terminal() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        close(terminal_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    [[nodiscard]] pid_t process() const { return process_; }
    [[nodiscard]] const std::string& screen() const { return screen_; }

    // Whether the text came before the program's end.
    bool wait_for(const std::string& text) {
        while (screen_.find(text) == screen_.npos) {
            if (!read_more()) {
                return false;
            }
        }
        return true;
    }

    void type(const std::string& text) {
        EXPECT_EQ(write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // The exit code at the end; 128 plus the signal when one ended the program.
    int finish() {
        while (read_more()) {
        }
        int status = 0;
        waitpid(std::exchange(process_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    bool read_more() {
        std::array<char, 4096> chunk;
        const ssize_t got = read(terminal_, chunk.data(), chunk.size());
        screen_.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        return got > 0;
    }

    int terminal_ = -1;
    pid_t process_ = -1;
    std::string screen_;
};

}  // namespace test
