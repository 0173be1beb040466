// kxctl with standard streams that are full, without a reader, closed or a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kxctl/every_command.hpp"

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

class StreamsOf : public testing::TestWithParam<const kx::ctl::Command*> {
protected:
    // The lines in which kxctl complains; progress has none of its marks.
    static std::vector<std::string> complaints_in(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            if (line.starts_with("kxctl: ")) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    std::vector<std::string> words_with(const char* word) const {
        std::vector<std::string> words = test::example_of(*GetParam());
        words.insert(words.end(), {"--sim=lab", word});
        return words;
    }

    test::Result usual_run(const char* word) const {
        const test::ExampleDirectory fresh;
        const test::Result result = test::run(words_with(word));
        EXPECT_EQ(result.exit, test::exit_of_example(*GetParam())) << word << result.err;
        return result;
    }

    const test::ExampleDirectory directory_;
};

// As a table and as JSON. What a command says beside its answer stays; one without an answer ends
// as it does otherwise.
TEST_P(StreamsOf, FullStandardOutputFailsACommandThatWasDone) {
    const OwnedDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    for (const char* word : {"--verbose", "--json"}) {
        const test::Result usual = usual_run(word);
        std::vector<std::string> complaints = complaints_in(usual.err);
        if (!usual.out.empty()) {
            complaints.emplace_back("kxctl: standard output: No space left on device");
        }
        const test::ExampleDirectory fresh;
        const test::Result result = run_into(full.get(), words_with(word));
        EXPECT_EQ(result.exit, usual.out.empty() ? usual.exit : std::max(1, usual.exit))
            << word << result.err;
        EXPECT_EQ(complaints_in(result.err), complaints) << word;
    }
}

TEST_P(StreamsOf, ClosedPipeIsQuiet) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const OwnedDescriptor broken(ends[1]);
    const test::Result usual = usual_run("--color=never");
    const test::Result result = run_into(broken.get(), words_with("--color=never"));
    EXPECT_EQ(result.exit, usual.exit);
    EXPECT_EQ(complaints_in(result.err), complaints_in(usual.err));
}

INSTANTIATE_TEST_SUITE_P(
    Table, StreamsOf, testing::ValuesIn(test::all_commands()), test::name_of_command);

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
