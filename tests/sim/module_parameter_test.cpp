// The Ethernet driver's parameter, and the two ways to a parameter file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <cerrno>
#include <cstdint>
#include <kxsim/host.hpp>
#include <string>

#include "support/output.hpp"

namespace {

constexpr char kTxCoal[] = "/sys/module/zfab4/parameters/tx_coal";

class ModuleParameter : public testing::Test {
protected:
    ModuleParameter() {
        host_.module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "1"}}});
    }

    uint32_t read(const std::string& text) {
        host_.file(kTxCoal, text);
        const auto attached = host_.attach();
        uint32_t value = 77;
        EXPECT_EQ(read_from_file(kTxCoal, &value), 0);
        return value;
    }

    std::string printed_by(const char* command) {
        const auto attached = host_.attach();
        return test::printed([&] { EXPECT_EQ(executeCommand(command), 0); });
    }

    kxsim::Host host_;
    CardParams params_{};
};

TEST_F(ModuleParameter, IsWrittenSignedForItsBitOnlyWhateverTheModuleName) {
    const auto attached = host_.attach();
    params_.tx_coal = -128;
    EXPECT_EQ(setDriverParams(&params_, ~0x1000000U, "zfab4"), 0U);
    EXPECT_EQ(host_.read(kTxCoal), "1\n");
    EXPECT_EQ(setDriverParams(&params_, 0x1000000, "zfab4"), 0U);
    EXPECT_EQ(host_.read(kTxCoal), "-128\n");
    params_.tx_coal = 127;
    EXPECT_EQ(setDriverParams(&params_, 0xffffffff, nullptr), 0U);
    EXPECT_EQ(host_.read(kTxCoal), "127\n");
}

TEST_F(ModuleParameter, ItsLowEightBitsAreRead) {
    struct Row {
        const char* text;
        int8_t value;
    };
    for (const auto& [text, value] :
         {Row{"2\n", 2}, Row{"255\n", -1}, Row{"256\n", 0}, Row{"-2\n", -2}, Row{"300\n", 44}}) {
        host_.file(kTxCoal, text);
        const auto attached = host_.attach();
        params_.tx_coal = 99;
        EXPECT_EQ(getDriverParams(&params_, "anything"), 0U);
        EXPECT_EQ(params_.tx_coal, value) << text;
    }
}

TEST_F(ModuleParameter, ReadsZeroAndStaysWhenMemoryIsShort) {
    host_.file(kTxCoal, "5\n");
    const auto attached = host_.attach();
    const kxsim::Fault shortage{.call = "malloc", .error = ENOMEM, .from = "libstdc++"};
    unsigned failures = kxsim::sweep(host_, shortage, [this](unsigned nth) {
        params_.tx_coal = 99;
        EXPECT_EQ(getDriverParams(&params_, "zfab4"), 0U);
        EXPECT_TRUE(params_.tx_coal == 0 || params_.tx_coal == 5) << nth;
    });
    EXPECT_GT(failures, 0U);
    failures = kxsim::sweep(host_, shortage, [this](unsigned nth) {
        params_.tx_coal = 6;
        EXPECT_EQ(setDriverParams(&params_, 0x1000000, "zfab4"), 0U) << nth;
    });
    EXPECT_GT(failures, 0U);
    EXPECT_EQ(host_.read(kTxCoal), "6\n") << "the last time memory was there";
}

TEST_F(ModuleParameter, WithoutItsFileItReadsZero) {
    host_.remove(kTxCoal);
    const auto attached = host_.attach();
    params_.tx_coal = 99;
    std::string printed;
    const std::string told = test::told([&] {
        printed = test::printed([&] { EXPECT_EQ(getDriverParams(&params_, nullptr), 0U); });
    });
    EXPECT_EQ(printed, "Error: File not found\n");
    EXPECT_THAT(
        told, testing::AllOf(
                  testing::HasSubstr(std::string("File ") + kTxCoal + " not Found"),
                  testing::EndsWith("error: No such file or directory\n")));
    EXPECT_EQ(params_.tx_coal, 0);
}

TEST_F(ModuleParameter, AFileIsReadAsOneUnsignedNumber) {
    EXPECT_EQ(read("42\n"), 42U);
    EXPECT_EQ(read("  42 43\n"), 42U);
    EXPECT_EQ(read("4294967295\n"), 4294967295U);
    EXPECT_EQ(read("-1\n"), 4294967295U);
    EXPECT_EQ(read("0x10\n"), 0U);
    EXPECT_EQ(read("7up\n"), 7U);
}

TEST_F(ModuleParameter, AFileWithoutANumberReadsZero) {
    for (const char* text : {"", "\n", "Y\n", "N\n", "(null)\n"}) {
        EXPECT_EQ(read(text), 0U) << text;
    }
}

TEST_F(ModuleParameter, AFileThatCannotBeOpenedGivesMinusOneAndTheReason) {
    host_.file(kTxCoal, "5\n", 0);
    const auto attached = host_.attach();
    uint32_t value = 77;
    std::string printed;
    const std::string told = test::told(
        [&] { printed = test::printed([&] { EXPECT_EQ(read_from_file(kTxCoal, &value), -1); }); });
    EXPECT_EQ(printed, "Error: File not found\n");
    EXPECT_THAT(told, testing::EndsWith("error: Permission denied\n"));
    EXPECT_EQ(value, 0U);
}

TEST_F(ModuleParameter, CommandsTellTheirLinesWhateverTheirStatus) {
    EXPECT_EQ(
        printed_by("printf 'a\\nb\\n'; exit 3"),
        "executeiwarpcommands : a\nexecuteiwarpcommands : b\n");
    EXPECT_EQ(printed_by("printf 'no newline'"), "executeiwarpcommands : no newline");
    EXPECT_EQ(printed_by("true"), "");
    EXPECT_EQ(printed_by("printf '%%s %%n\\n'"), "executeiwarpcommands : %s %n\n");
}

TEST_F(ModuleParameter, LongLinesAreToldInPieces) {
    const std::string piece(255, 'x');
    EXPECT_EQ(
        printed_by("printf '%0300d\\n' 0 | tr 0 x"),
        "executeiwarpcommands : " + piece + "executeiwarpcommands : " + std::string(45, 'x') +
            "\n");
}

}  // namespace
