// "-" as the file of a command that copies bytes: standard output.
#include <gmock/gmock.h>

#include <filesystem>

#include "kxctl/terminal.hpp"
#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Row {
    std::vector<std::string> words;  // the file's name is next
    bool is_text;
};

const Row kRows[] = {
    {{"--sim=lab", "flash", "dump", "05:00.0", "--region", "config"}, false},
    {{"--sim=lab", "vpd", "show", "04:00.4", "--raw"}, false},
    {{"--sim=lab", "report", "--html"}, true},
};

std::vector<std::string> with(const Row& row, const std::string& file) {
    std::vector<std::string> words = row.words;
    words.push_back(file);
    return words;
}

TEST(Dump, ToStandardOutputIsWhatTheFileWouldHold) {
    const test::ScratchDirectory directory;
    const test::WorkingDirectory here(directory.path());
    for (const Row& row : kRows) {
        const test::Result result = test::run(with(row, "-"));
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(test::run(with(row, "file")).exit, 0);
        std::string kept = test::file_text("file");
        std::filesystem::remove("file");
        if (row.is_text) {  // the pages have different times
            kept.resize(100);
            EXPECT_THAT(result.out, StartsWith(kept));
        } else {
            EXPECT_FALSE(result.out.empty());
            EXPECT_EQ(result.out, kept);
        }
        EXPECT_FALSE(std::filesystem::exists("-"));
    }
}

TEST(Dump, ToATerminalIsRefusedWhenItIsNotText) {
    for (const Row& row : kRows) {
        test::Terminal terminal(with(row, "-"));
        EXPECT_EQ(terminal.finish(), row.is_text ? 0 : 2);
        EXPECT_EQ(
            terminal.screen().find("Standard output is a terminal") == std::string::npos,
            row.is_text)
            << terminal.screen();
    }
}

TEST(Dump, ToStandardOutputLeavesNoRoomForJson) {
    for (const Row& row : kRows) {
        std::vector<std::string> words = with(row, "-");
        words.emplace_back("--json");
        const test::Result result = test::run(words);
        EXPECT_EQ(result.exit, 2);
        EXPECT_THAT(result.err, HasSubstr("The file - is standard output"));
    }
}

TEST(Metrics, WithAHyphenAsFileAreOnStandardOutput) {
    const test::Result result = test::run({"--sim=lab", "metrics", "--output", "-"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_THAT(result.out, StartsWith("# HELP"));
}

TEST(Backup, IsNoDump) {
    const test::Result result =
        test::run({"--sim=lab", "flash", "erase-boot", "03:00.4", "--yes", "--backup", "-"});
    EXPECT_EQ(result.exit, 2);
    EXPECT_THAT(result.err, HasSubstr("--backup needs a file"));
}

}  // namespace
