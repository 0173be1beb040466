// The output of the library and its children does not appear in kxctl's output. Each test body runs
// in a child process, because whether messages are shown is decided once.
#include "library/call.hpp"

#include <gtest/gtest.h>
#include <kxlinhw/host.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "failure/failure.hpp"
#include "kxctl/process.hpp"

namespace {

using kx::ctl::call_library;

struct Printed {
    std::string out;
    std::string err;
};

// Everything a body prints, through stdio or not, in a process of its own.
template <class Body>
Printed printed_by(Body body) {
    const test::detail::Sink out;
    const test::detail::Sink err;
    const pid_t child = fork();
    if (child == 0) {
        dup2(out.get(), STDOUT_FILENO);
        dup2(err.get(), STDERR_FILENO);
        body();
        std::fflush(stdout);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return {out.text(), err.text()};
}

// All the ways in which the library writes.
int talkative_library() {
    std::puts("puts");
    std::fputs("stderr\n", stderr);
    KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_FAILURE, "log %d", 7);
    if (std::system("echo child; echo child-error >&2") != 0) {
        std::abort();
    }
    std::printf("no line end");
    return 5;
}

TEST(LibraryCall, DropsWhatTheLibraryPrints) {
    const Printed printed = printed_by([] {
        std::printf("before ");
        const int result = call_library(talkative_library);
        std::printf("after %d", result);
    });
    EXPECT_EQ(printed.out, "before after 5");
    EXPECT_EQ(printed.err, "");
}

TEST(LibraryCall, ShowsItOnStandardErrorInItsOrderWhenAsked) {
    const Printed printed = printed_by([] {
        kx::ctl::show_library_messages();
        std::printf("before ");
        call_library(talkative_library);
        std::printf("after");
    });
    EXPECT_EQ(printed.out, "before after");
    EXPECT_EQ(
        printed.err,
        "puts\n"
        "stderr\n"
        "libkxlinhw: vm: error: log 7\n"
        "child\n"
        "child-error\n"
        "no line end");
}

TEST(LibraryCall, RestoresTheStreamsBehindAnException) {
    const Printed printed = printed_by([] {
        try {
            call_library([]() -> int {
                std::printf("lost");
                throw std::runtime_error("x");
            });
        } catch (const std::runtime_error&) {
            std::printf("caught");
        }
    });
    EXPECT_EQ(printed.out, "caught");
}

TEST(LibraryCall, MayStandInsideAnother) {
    const Printed printed = printed_by([] {
        call_library([] {
            call_library(talkative_library);
            std::printf("still inside");
            return 0;
        });
        std::printf("outside");
    });
    EXPECT_EQ(printed.out, "outside");
}

TEST(LibraryCall, WithoutADescriptorLeftIsAFailureAndNoSilence) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers need descriptors for themselves";
#endif
    const Printed printed = printed_by([] {
        for (const rlim_t limit : {3U, 4U, 5U}) {  // each time one step less can fail
            const rlimit few{limit, limit + 100};
            setrlimit(RLIMIT_NOFILE, &few);
            try {
                call_library(talkative_library);
                std::printf("called");
            } catch (const kx::ctl::Failure&) {
                std::printf("%u ", static_cast<unsigned>(limit));
            }
        }
    });
    EXPECT_EQ(printed.out, "3 4 5 ");
    EXPECT_EQ(printed.err, "");
}

}  // namespace
