// The output of kxctl on the included scenarios, compared with the files in golden/. The first line
// of each file is its command line: "$ kxctl", and words without spaces. A new file needs no more
// than that line. KXCTL_UPDATE_GOLDEN=1 in front of this program writes the rest, and writes the
// files again after an intended change; read the diff, which shows exit codes too.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "kxctl/every_command.hpp"
#include "support/file_text.hpp"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> golden_files() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(KXCTL_GOLDEN_DIRECTORY)) {
        names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
}

// The words behind "$ kxctl" in the first line of a file; nothing when it begins otherwise.
std::vector<std::string> command_in(const std::string& kept) {
    std::vector<std::string> words = test::words_of(kept.substr(0, kept.find('\n')));
    if (words.size() < 3 || words[0] != "$" || words[1] != "kxctl") {
        return {};
    }
    words.erase(words.begin(), words.begin() + 2);
    return words;
}

// Both outputs and the exit code, as one text.
std::string transcript(const std::vector<std::string>& words, const test::Result& result) {
    std::string text = "$ kxctl";
    for (const std::string& word : words) {
        text += " " + word;
    }
    text += "\n" + result.out;
    if (!result.err.empty()) {
        text += "--- standard error\n" + result.err;
    }
    if (result.exit != 0) {
        text += "--- exit code " + std::to_string(result.exit) + "\n";
    }
    return text;
}

class Golden : public testing::TestWithParam<std::string> {};

TEST_P(Golden, OutputIsAsKept) {
    const std::string path = std::string(KXCTL_GOLDEN_DIRECTORY) + "/" + GetParam();
    const std::vector<std::string> words = command_in(test::file_text(path));
    ASSERT_FALSE(words.empty()) << path << " does not begin with a command line";
    const std::string text = transcript(words, test::run(words));
    if (std::getenv("KXCTL_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(path, std::ios::binary) << text;
    }
    EXPECT_EQ(text, test::file_text(path));
}

INSTANTIATE_TEST_SUITE_P(Files, Golden, testing::ValuesIn(golden_files()));

// These nouns have tests of their own only.
TEST(GoldenFiles, ShowEveryOtherNoun) {
    std::set<std::string> missing;
    for (const kx::ctl::Command& command : kx::ctl::commands()) {
        missing.insert(command.noun);
    }
    for (const std::string& name : golden_files()) {
        missing.erase(name.substr(0, name.find_first_of("_.")));
    }
    EXPECT_THAT(
        missing, testing::IsSubsetOf(
                     {"apply", "confirm", "diff", "history", "iwarp", "metrics", "plan", "repair",
                      "report", "restore", "revert"}));
}

}  // namespace
