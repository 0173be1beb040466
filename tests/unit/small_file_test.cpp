// Small files, whole or in pieces.
#include "support/small_file.hpp"
#include "support/scratch_directory.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

class SmallFile : public testing::Test {
protected:
    void hold(const std::string& text) { path_ = directory_.write("file", text); }

    test::ScratchDirectory directory_;
    std::string path_ = directory_.write("file", "");
};

TEST_F(SmallFile, IsThereOrNot) {
    EXPECT_TRUE(kx::path_exists(path_.c_str()));
    EXPECT_TRUE(kx::path_exists("/"));
    fs::remove(path_);
    EXPECT_FALSE(kx::path_exists(path_.c_str()));
}

TEST_F(SmallFile, IsReadWholeHoweverLong) {
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 100000U}) {
        const std::string text(size, 'x');
        hold(text);
        EXPECT_EQ(kx::read_file(path_.c_str()), text) << size;
    }
}

TEST_F(SmallFile, IsReadUpToALimit) {
    const std::string text = std::string(5000, 'x') + "end";
    hold(text);
    for (const std::size_t limit : {0U, 1U, 4096U, 4097U, 5002U, 5003U, 9000U}) {
        EXPECT_EQ(kx::read_file(path_.c_str(), limit), text.substr(0, limit)) << limit;
    }
}

TEST_F(SmallFile, ThatCannotBeOpenedIsNotAnEmptyOne) {
    fs::remove(path_);
    EXPECT_EQ(kx::read_file(path_.c_str()), std::nullopt);
    EXPECT_EQ(kx::read_value_file(path_.c_str(), 10), std::nullopt);
    EXPECT_EQ(kx::read_file("/"), "") << "a directory opens, but nothing can be read of it";
    EXPECT_EQ(kx::read_value_file("/", 10), "");
}

TEST_F(SmallFile, OfOneValueIsReadOnce) {
    hold("1500\n");
    EXPECT_EQ(kx::read_value_file(path_.c_str(), 64), "1500\n");
    EXPECT_EQ(kx::read_value_file(path_.c_str(), 2), "15");
    hold(std::string(100, 'x'));
    EXPECT_EQ(kx::read_value_file(path_.c_str(), 1000), std::string(64, 'x'));
}

std::vector<std::string> pieces_of(std::string_view content, std::size_t longest) {
    std::vector<std::string> found;
    kx::LinePieces pieces(content, longest);
    while (const auto piece = pieces.next()) {
        found.emplace_back(*piece);
    }
    return found;
}

TEST(LinePieces, AreWhatFgetsWouldGive) {
    using Texts = std::vector<std::string>;
    EXPECT_EQ(pieces_of("", 4), Texts());
    EXPECT_EQ(pieces_of("a\n\nb", 4), (Texts{"a\n", "\n", "b"}));
    EXPECT_EQ(pieces_of("abc\nx\n", 4), (Texts{"abc\n", "x\n"}));
    EXPECT_EQ(pieces_of("abcd\ne", 4), (Texts{"abcd", "\n", "e"}));
    EXPECT_EQ(pieces_of("abcdefghi", 4), (Texts{"abcd", "efgh", "i"}));
}

}  // namespace
