// An agent that defines functions with the library's names: the library calls the agent's
// functions.
#include <gtest/gtest.h>
#include <kxlinhw/settings.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"

namespace {

std::vector<std::string> trimmed;           // the texts that the library passed to trim
char* (*answer)(char* text) = nullptr;      // the text that it gets
char elsewhere[] = "  an address outside";  // of every line

class OwnTrim : public testing::Test {
protected:
    OwnTrim() { trimmed.clear(); }

    [[nodiscard]] std::string rewritten(const std::string& before) const {
        const std::string path = directory_.write("sysctl.conf", before);
        EXPECT_EQ(replaceSysctlLine(path.c_str(), "key", "key = new\n", 3), 0);
        return test::file_text(path);
    }

private:
    test::ScratchDirectory directory_;
};

TEST_F(OwnTrim, DecidesWhatEveryLineLoses) {
    answer = [](char* text) { return *text == '#' ? text + 1 : text; };
    EXPECT_EQ(rewritten("#key = old\n#other\n key = 1\n"), "key = new\nother\n key = 1\n");
    EXPECT_EQ(trimmed, (std::vector<std::string>{"#key = old\n", "#other\n", " key = 1\n"}));
}

TEST_F(OwnTrim, ThatLeavesTheLineStripsNothing) {
    for (const auto stray :
         {+[](char*) -> char* { return nullptr; }, +[](char*) -> char* { return elsewhere; }}) {
        answer = stray;
        EXPECT_EQ(rewritten("  a = 1\nkey = old\n"), "  a = 1\nkey = new\n");
    }
}

}  // namespace

char* trim(char* text) {
    trimmed.emplace_back(text);
    return answer(text);
}
