// What kxctl does when its standard streams are full, gone, closed or a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kxctl/process.hpp"

namespace {

using testing::HasSubstr;

class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int number) : number_(number) {}
    ~OwnedDescriptor() { close(number_); }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
    int get() const { return number_; }

private:
    int number_;
};

test::Result run_into(int descriptor, std::vector<std::string> words) {
    test::Setup setup;
    setup.standard_output = descriptor;
    return test::run(std::move(words), setup);
}

test::Result run_in_shell(const std::string& line) {
    test::Setup setup;
    setup.program = "sh";
    return test::run({"-c", line, "sh", KXCTL_PROGRAM}, setup);
}

TEST(FullStandardOutput, FailsACommandThatWasDone) {
    const OwnedDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    for (const char* word : {"version", "--help", "--version"}) {
        const test::Result result = run_into(full.get(), {word});
        EXPECT_EQ(result.exit, 1) << word;
        EXPECT_EQ(result.err, "kxctl: standard output: No space left on device\n") << word;
    }
}

TEST(FullStandardOutput, KeepsTheExitCodeOfACommandThatFailed) {
    const OwnedDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(run_into(full.get(), {"bogus", "-j"}).exit, 2);
}

TEST(StandardOutput, WhoseReaderWentAwayIsNoFailure) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const OwnedDescriptor broken(ends[1]);
    const test::Result result = run_into(broken.get(), {"version"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
}

TEST(StandardOutput, ThatIsClosedFails) {
    const test::Result result = run_in_shell("\"$1\" version >&-");
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.err, "kxctl: standard output: Bad file descriptor\n");
}

TEST(StandardError, ThatIsClosedLosesItsLineOnly) {
    const test::Result result = run_in_shell("\"$1\" bogus -j 2>&-");
    EXPECT_EQ(result.exit, 2);
    EXPECT_THAT(result.out, HasSubstr("Unknown command bogus"));
    EXPECT_EQ(result.err, "");
}

TEST(StandardStreams, AllClosedStillGiveAnExitCode) {
    EXPECT_EQ(run_in_shell("\"$1\" version <&- >&- 2>&-").exit, 1);
    EXPECT_EQ(run_in_shell("\"$1\" bogus <&- >&- 2>&-").exit, 2);
}

}  // namespace
