// The version of the default configuration file, by the device id in its version line.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/flash_images.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/output.hpp"
#include "support/scratch_directory.hpp"

namespace {

constexpr char kPath[] = "/lib/firmware/zfab4/q4-config.txt";
std::string stand_in;  // opened in the file's place

}  // namespace

extern "C" KX_EXPORT FILE* fopen(const char* path, const char* mode) {
    const auto next =
        reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
    return next(std::strcmp(path, kPath) == 0 ? stand_in.c_str() : path, mode);
}

namespace {

class DefaultConfigFile : public testing::Test {
protected:
    DefaultConfigFile() { stand_in = directory_ / "q4-config.txt"; }

    static int32_t version_of(const std::string& content, uint8_t chip_class = 1) {
        std::ofstream(stand_in, std::ios::binary) << content;
        int32_t version = -1;
        printed_ = test::printed([&] { version = get_default_config_version(chip_class); });
        return version;
    }

    static std::string found(const std::string& line) {
        return std::string("Found the Conf File[") + kPath + "] Signature: " + line + "\n";
    }

    static inline std::string printed_;

private:
    const test::ScratchDirectory directory_;
};

TEST_F(DefaultConfigFile, EveryDeviceIdHasItsVersion) {
    struct Row {
        const char* id;
        int32_t version;
    };
    for (const Row& row :
         {Row{"0x4b58", 0}, Row{"0x4B58", 0}, Row{"0x0100", 0}, Row{"0x0200", 0}, Row{"0x0400", 1},
          Row{"0x0500", 2}, Row{"0x0300", 3}, Row{"0x0600", 4}, Row{"0x0700", 0}}) {
        const std::string line = std::string("version = ") + row.id + "\n";
        EXPECT_EQ(version_of(line), row.version) << row.id;
        EXPECT_EQ(printed_, found(line));
    }
}

TEST_F(DefaultConfigFile, EarlierIdsOfTheSearchWin) {
    EXPECT_EQ(version_of("version = 0x0300 0x0500\n"), 2);
    EXPECT_EQ(version_of("version = 0x0600 0x0300\n"), 3);
    EXPECT_EQ(version_of("version = 0x0500 0x0400\n"), 1);
    EXPECT_EQ(version_of("version = 0x0400 0x0200\n"), 0);
    EXPECT_EQ(version_of("version = 0x0400 0x4b58\n"), 0);
}

TEST_F(DefaultConfigFile, FirstVersionLineCounts) {
    EXPECT_EQ(version_of("# 0x0600\n\n[ini]\n\tversion = 0x0400 # main\nversion = 0x0500\n"), 1);
    EXPECT_EQ(printed_, found("\tversion = 0x0400 # main\n"));
}

TEST_F(DefaultConfigFile, WithoutAVersionLineTheLastLineIsTaken) {
    EXPECT_EQ(version_of("one\ntwo 0x0600\n"), 4);
    EXPECT_EQ(printed_, found("two 0x0600\n"));
    EXPECT_EQ(version_of("version= 0x0600\nnothing"), 0);
    EXPECT_EQ(printed_, found("nothing"));
}

TEST_F(DefaultConfigFile, EmptyFileHasAnEmptyLine) {
    EXPECT_EQ(version_of(""), 0);
    EXPECT_EQ(printed_, found(""));
}

TEST_F(DefaultConfigFile, LongLinesAreReadInPiecesOf255Characters) {
    const std::string rest = "version = 0x0500\n";
    EXPECT_EQ(version_of(std::string(255, 'x') + rest), 2);
    EXPECT_EQ(printed_, found(rest));
    EXPECT_EQ(version_of("version = " + std::string(245, 'x') + "0x0500\n"), 0);
    EXPECT_EQ(version_of(std::string(250, 'x') + rest + "0x0600\n"), 4) << "the mark is cut in two";
    EXPECT_EQ(version_of(std::string(100000, 'x')), 0);
}

TEST_F(DefaultConfigFile, BytesBehindANulAreNotSeen) {
    EXPECT_EQ(version_of(std::string("version = \0 0x0500\n", 19)), 0);
    EXPECT_EQ(printed_, found("version = "));
}

TEST_F(DefaultConfigFile, MissingFileIsVersionZeroAndSilent) {
    EXPECT_EQ(test::printed([] { EXPECT_EQ(get_default_config_version(1), 0); }), "");
}

TEST_F(DefaultConfigFile, DirectoryInItsPlaceHasAnEmptyLine) {
    std::filesystem::create_directory(stand_in);
    EXPECT_EQ(test::printed([] { EXPECT_EQ(get_default_config_version(2), 0); }), found(""));
}

TEST_F(DefaultConfigFile, OnlyTwoChipClassesHaveOne) {
    EXPECT_EQ(version_of("version = 0x0500\n", 2), 2);
    for (const uint8_t chip_class : std::array<uint8_t, 3>{0, 3, 255}) {
        EXPECT_EQ(version_of("version = 0x0500\n", chip_class), -1);
        EXPECT_EQ(printed_, "");
    }
}

}  // namespace
