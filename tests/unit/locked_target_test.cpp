// The lock of a configuration file's directory, and how long another agent is waited for. The test
// controls the time: a pause advances it and takes no real time.
#include "settings/locked_target.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kxlinhw/settings.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "settings/config_file.hpp"
#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"

namespace {

using std::chrono::nanoseconds;

// Time that the test lets pass; none while there is no test.
struct Clock {
    bool on = false;
    nanoseconds passed{};
    unsigned pauses = 0;
    std::function<void()> at_a_pause;
} test_clock;

constexpr nanoseconds kSecond = std::chrono::seconds(1);

timespec timespec_of(nanoseconds time) {
    return {static_cast<time_t>(time / kSecond), static_cast<long>((time % kSecond).count())};
}

}  // namespace

extern "C" KX_EXPORT int clock_gettime(clockid_t clock, timespec* now) noexcept {
    using Call = int (*)(clockid_t, timespec*);
    static const auto next = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "clock_gettime"));
    if (!test_clock.on) {
        return next(clock, now);
    }
    *now = timespec_of(1000 * kSecond + test_clock.passed);
    return 0;
}

extern "C" KX_EXPORT int nanosleep(const timespec* wanted, timespec* rest) {
    using Call = int (*)(const timespec*, timespec*);
    static const auto next = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "nanosleep"));
    if (!test_clock.on) {
        return next(wanted, rest);
    }
    test_clock.passed += wanted->tv_sec * kSecond + nanoseconds(wanted->tv_nsec);
    ++test_clock.pauses;
    if (test_clock.at_a_pause) {
        test_clock.at_a_pause();
    }
    return 0;
}

namespace {

namespace fs = std::filesystem;
using kx::settings::append_unless_present;
using kx::settings::LockedTarget;
using kx::settings::Saving;

class LockedTargetTest : public testing::Test {
protected:
    LockedTargetTest() {
        test_clock = {};
        test_clock.on = true;
    }
    ~LockedTargetTest() override { test_clock = {}; }

    // The lock, held by another agent.
    [[nodiscard]] kx::Descriptor held(const fs::path& directory) const {
        kx::Descriptor file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        EXPECT_EQ(flock(file.get(), LOCK_EX | LOCK_NB), 0);
        return file;
    }
    [[nodiscard]] Saving append() const {
        return append_unless_present(
            path_.c_str(), "new = 1\n", [](std::string_view line) { return line.empty(); });
    }
    [[nodiscard]] std::string text() const { return test::file_text(path_); }

    test::ScratchDirectory scratch_;
    const fs::path directory_ = scratch_.path();
    const fs::path path_ = scratch_.write("settings.conf", "key = 1\n");
};

TEST_F(LockedTargetTest, IsWaitedForFiveSecondsAndThenFailsAsAnUnwritableFile) {
    const kx::Descriptor other = held(directory_);
    EXPECT_EQ(append(), Saving::kUnopened);
    EXPECT_GE(test_clock.passed, 4 * kSecond);
    EXPECT_LE(test_clock.passed, 5 * kSecond);
    test_clock.passed = {};
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_GE(test_clock.passed, 4 * kSecond);
    EXPECT_LE(test_clock.passed, 5 * kSecond);
    test_clock.passed = {};
    EXPECT_EQ(replaceSysctlLine(path_.c_str(), "key", "NEW\n", 3), 1);
    EXPECT_LE(test_clock.passed, 5 * kSecond);
    EXPECT_EQ(text(), "key = 1\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_), {}), 1);
}

TEST_F(LockedTargetTest, IsTakenAsSoonAsTheOtherAgentIsDone) {
    kx::Descriptor other = held(directory_);
    test_clock.at_a_pause = [&other] {
        if (test_clock.pauses == 3) {
            other = kx::Descriptor();
        }
    };
    EXPECT_EQ(append(), Saving::kAppended);
    EXPECT_EQ(test_clock.pauses, 3U);
    EXPECT_EQ(text(), "key = 1\nnew = 1\n");
}

TEST_F(LockedTargetTest, WaitsForNobodyWhenItIsFree) {
    EXPECT_EQ(append(), Saving::kAppended);
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 0);
    EXPECT_EQ(test_clock.pauses, 0U);
    EXPECT_TRUE(held(directory_)) << "it was given back";
}

TEST_F(LockedTargetTest, OfALinkIsTheDirectoryOfItsTarget) {
    fs::create_directory(directory_ / "real");
    std::ofstream(directory_ / "real" / "file") << "key = 1\n";
    const fs::path link = directory_ / "link";
    fs::create_symlink("real/file", link);
    {
        const kx::Descriptor other = held(directory_ / "real");
        EXPECT_EQ(replacePortConfLine(link.c_str(), "NEW\n", "key"), 1);
    }
    const kx::Descriptor other = held(directory_);
    EXPECT_EQ(replacePortConfLine(link.c_str(), "NEW\n", "key"), 0);
}

// A process that the agent forks while the lock is held has its descriptor too.
TEST_F(LockedTargetTest, IsFreeAgainWhateverTheAgentForked) {
    pid_t child = 0;
    {
        const LockedTarget target(path_.c_str());
        EXPECT_TRUE(target);
        child = fork();
        if (child == 0) {
            pause();
            _exit(0);
        }
    }
    EXPECT_TRUE(held(directory_));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

}  // namespace
