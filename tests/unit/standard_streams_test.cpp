// Descriptors 0, 1 and 2 stay reserved for the standard streams, closed or not.
#include "support/standard_streams.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "support/closed_streams.hpp"
#include "support/handle.hpp"

namespace {

using kx::StandardStreamGuard;
using test::kClosedStreams;
using test::streams_text;
using test::without_streams;

int open_null() { return open("/dev/null", O_RDWR | O_CLOEXEC); }

std::string above(int descriptor) {
    return descriptor > STDERR_FILENO ? "" : "is " + std::to_string(descriptor) + ";";
}

TEST(StandardStreams, AreNoDescriptorsOfOurs) {
    for (const unsigned closed : kClosedStreams) {
        EXPECT_EQ(
            without_streams(
                closed,
                [] {
                    const kx::Descriptor first(open_null());
                    const kx::Descriptor second(open_null());
                    return above(first.get()) + above(second.get()) +
                           (fcntl(first.get(), F_GETFD) == FD_CLOEXEC ? "" : "not closed on exec");
                }),
            "")
            << streams_text(closed);
    }
}

TEST(StandardStreams, AreNoFilesAndDirectoriesOfOurs) {
    for (const unsigned closed : kClosedStreams) {
        EXPECT_EQ(
            without_streams(
                closed,
                [] {
                    const kx::File file = kx::open_file("/proc/self/stat", "re");
                    const kx::Directory directory = kx::open_directory("/");
                    const kx::Pipe pipe = kx::open_pipe("echo text");
                    char text[8] = "";
                    if (!file || !directory || !pipe || std::fgetc(file.get()) == EOF ||
                        readdir(directory.get()) == nullptr ||
                        std::fgets(text, sizeof text, pipe.get()) == nullptr) {
                        return std::string("unreadable");
                    }
                    return above(fileno(file.get())) + above(dirfd(directory.get())) +
                           above(fileno(pipe.get()));
                }),
            "")
            << streams_text(closed);
    }
}

TEST(StandardStreams, FailedCallsStayFailed) {
    errno = ENODEV;
    EXPECT_EQ(kx::above_standard_streams(-1), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(kx::open_file("/nowhere", "re"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(kx::open_directory("/nowhere"), nullptr);
}

// No descriptor above 2 is available.
void use_up_descriptors() {
    const rlimit none{3, 3};
    setrlimit(RLIMIT_NOFILE, &none);
}

TEST(StandardStreams, WithoutAnotherNumberTheOpenFails) {
    EXPECT_EQ(
        without_streams(
            2,
            [] {
                use_up_descriptors();
                const kx::Descriptor descriptor(open_null());
                return std::string(descriptor ? "open" : "") + (errno == EINVAL ? "" : "errno");
            }),
        "");
}

TEST(StandardStreams, AreGuardedForWhatOthersOpen) {
    for (const unsigned closed : kClosedStreams) {
        EXPECT_EQ(
            without_streams(
                closed,
                [] {
                    const StandardStreamGuard guard;
                    return std::string(guard ? "" : "incomplete;") + above(open_null());
                }),
            "")
            << streams_text(closed);
    }
}

TEST(StandardStreamGuard, OpensNothingWhileAllThreeAreOpen) {
    const int before = open_null();
    close(before);
    const StandardStreamGuard guard;
    EXPECT_TRUE(guard);
    const int after = open_null();
    EXPECT_EQ(after, before);
    close(after);
}

TEST(StandardStreamGuard, EndsWithTheLastOfSeveral) {
    EXPECT_EQ(
        without_streams(
            7,
            [] {
                std::string answer;
                {
                    const StandardStreamGuard outer;
                    std::thread([] { const StandardStreamGuard inner; }).join();
                    answer = above(open_null());
                }
                return answer;
            }),
        "");
}

TEST(StandardStreamGuard, LeavesWhatTheAgentPutThere) {
    EXPECT_EQ(
        without_streams(
            2,
            [] {
                const int log = open(".", O_TMPFILE | O_RDWR, 0600);
                {
                    const StandardStreamGuard guard;
                    dup2(log, STDOUT_FILENO);
                }
                const bool there = test::stream_open(STDOUT_FILENO);
                close(STDOUT_FILENO);
                return std::string(there ? "" : "closed");
            }),
        "");
}

TEST(StandardStreamGuard, TellsThatItCouldNotFillThemAll) {
    EXPECT_EQ(
        without_streams(
            6,
            [] {
                const rlimit none{1, 1};
                setrlimit(RLIMIT_NOFILE, &none);
                const StandardStreamGuard guard;
                return std::string(guard ? "complete" : "");
            }),
        "");
}

TEST(StandardStreamGuard, KeepsTheReasonOfTheCallInIt) {
    EXPECT_EQ(
        without_streams(
            7,
            [] {
                {
                    const StandardStreamGuard guard;
                    errno = EXDEV;
                }
                return std::string(errno == EXDEV ? "" : "lost");
            }),
        "");
}

}  // namespace
