// Words of shell commands; the shell itself decides what they mean.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/handle.hpp"
#include "support/shell.hpp"

namespace {

using kx::shell_word;

// What `printf %s WORD` prints when a shell runs it.
std::string as_the_shell_reads(const std::string& word) {
    const kx::Pipe pipe(popen(("printf %s " + word).c_str(), "re"));
    std::string text;
    for (int c = 0; pipe && (c = std::fgetc(pipe.get())) != EOF;) {
        text += static_cast<char>(c);
    }
    return text;
}

TEST(ShellWord, OrdinaryCharactersStandBare) {
    const std::string ordinary = "azAZ09_.+:@%,/-";
    EXPECT_EQ(shell_word(ordinary), ordinary);
}

TEST(ShellWord, OrdinaryTextsStayWholeWhateverTheirLength) {
    const std::string text(5000, 'x');
    EXPECT_EQ(shell_word(text), text);
}

TEST(ShellWord, AnEmptyTextStaysAWord) { EXPECT_EQ(shell_word(""), "''"); }

TEST(ShellWord, EveryOtherCharacterIsQuoted) {
    for (int code = 1; code < 256; ++code) {
        const std::string text(1, static_cast<char>(code));
        const std::string word = shell_word(text);
        if (kx::is_ordinary_in_shell(text[0])) {
            EXPECT_EQ(word, text);
        } else if (text[0] == '\'') {
            EXPECT_EQ(word, R"(''\''')");
        } else {
            EXPECT_EQ(word, "'" + text + "'") << code;
        }
    }
}

TEST(ShellWord, TheShellReadsHostileTextsAsTheyAre) {
    for (const std::string text :
         {"a b", "$(touch x)", "`id`", "a;b", "x\ny", "it's", "'", "''", "\\'", "~", "*", "$HOME",
          "a\"b", "&", "> /dev/null", "#c", "=x", "!x"}) {
        EXPECT_EQ(as_the_shell_reads(shell_word(text)), text);
    }
}

}  // namespace
