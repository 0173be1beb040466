// Calls a function while some of the descriptors 0, 1 and 2 are closed.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

namespace test {

constexpr int kStreams = 3;

// Each bit is a closed stream; every combination except none.
constexpr std::array<unsigned, 7> kClosedStreams{1, 2, 3, 4, 5, 6, 7};

inline bool stream_open(int number) { return fcntl(number, F_GETFD) != -1; }

inline std::string streams_text(unsigned closed) {
    std::string text = "closed:";
    for (int number = 0; number < kStreams; ++number) {
        text += (closed >> number & 1U) != 0 ? " " + std::to_string(number) : "";
    }
    return text;
}

// Run the body in a child process with these streams closed. Returns its answer, and reports every
// stream that the body left open.
template <class Body>
std::string without_streams(unsigned closed, Body body) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return "no pipe";
    }
    const pid_t child = fork();
    if (child == 0) {
        for (int number = 0; number < kStreams; ++number) {
            if ((closed >> number & 1U) != 0) {
                close(number);
            }
        }
        std::string answer = body();
        for (int number = 0; number < kStreams; ++number) {
            if ((closed >> number & 1U) != 0 && stream_open(number)) {
                answer += " " + std::to_string(number) + " is open afterwards";
            }
        }
        const bool told =
            write(ends[1], answer.data(), answer.size()) == static_cast<ssize_t>(answer.size());
        _exit(told ? 0 : 1);
    }
    close(ends[1]);
    std::string answer;
    std::array<char, 512> chunk;
    for (ssize_t got; (got = read(ends[0], chunk.data(), chunk.size())) > 0;) {
        answer.append(chunk.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? answer : answer + " ended with " + std::to_string(status);
}

}  // namespace test
