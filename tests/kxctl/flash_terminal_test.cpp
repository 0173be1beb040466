// The question and the progress of kxctl flash on a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/vpd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "kxctl/boot_rom.hpp"
#include "kxctl/on_host.hpp"
#include "kxctl/terminal.hpp"
#include "support/scratch_directory.hpp"

namespace {

using testing::HasSubstr;
using testing::Not;

struct Session {
    int exit;
    std::string screen;
};

class FlashTerminal : public testing::Test {
protected:
    FlashTerminal() {
        kxsim::Adapter adapter{.chip = "Q5", .location = "03:00.4"};
        adapter.eeprom.product_data = {.product = "Q520-CR", .serial = "PT\033[2J1"};
        adapter.flash.content = {{0x70000, "CBIO"}};
        host_.adapter(adapter);
    }

    // Types a text when another text is on the screen.
    Session run(
        const std::vector<std::string>& words, const std::string& text,
        const std::string& after = "") {
        const auto attached = host_.attach();
        test::Terminal terminal(words, {.directory = directory_.path()});
        if (terminal.wait_for(after)) {
            terminal.type(text);
        }
        const int exit = terminal.finish();
        return {exit, terminal.screen()};
    }

    [[nodiscard]] std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    const test::ScratchDirectory directory_;
    kxsim::Host host_;
};

TEST_F(FlashTerminal, QuestionNamesCardRegionAndCopy) {
    const Session session = run({"flash", "config-erase", "03:00.4"}, "yes\n");
    EXPECT_EQ(session.exit, 0) << session.screen;
    EXPECT_THAT(
        session.screen, HasSubstr("Card 03:00.4 (Q5, Q520-CR, serial number PT\uFFFD[2J1)\r\n"
                                  "interfaces: none\r\n"
                                  "region config: erase sector 7, 0x70000-0x7ffff\r\n"
                                  "SHA-256 before "));
    EXPECT_THAT(
        session.screen, testing::ContainsRegex("SHA-256 after  [0-9a-f]{64}\r\ncopy before: "
                                               "kestrix-03\\.00\\.4-config-"));
    EXPECT_THAT(session.screen, HasSubstr("Z.bin\r\nGo on? [y/N] "));
    EXPECT_EQ(host_.hardware("03:00.4").flash(0x70000, 4), "\xFF\xFF\xFF\xFF");
    ASSERT_EQ(files().size(), 1U);
    EXPECT_THAT(
        files()[0], testing::MatchesRegex("kestrix-03\\.00\\.4-config-[0-9]{8}T[0-9]{6}Z\\.bin"));
}

TEST_F(FlashTerminal, AnythingButYesChangesNothing) {
    for (const char* answer : {"\n", "n\n", "maybe\n", "\x04"}) {
        const Session session = run({"flash", "config-erase", "03:00.4"}, answer);
        EXPECT_EQ(session.exit, 1) << session.screen;
        EXPECT_THAT(session.screen, HasSubstr("kxctl: Nothing was changed"));
    }
    EXPECT_EQ(host_.hardware("03:00.4").flash(0x70000, 4), "CBIO");
    EXPECT_TRUE(files().empty());
}

TEST_F(FlashTerminal, InterruptedAtTheQuestionChangesNothing) {
    const Session session = run({"flash", "config-erase", "03:00.4"}, "\x03", "Go on? [y/N] ");
    EXPECT_EQ(session.exit, 128 + SIGINT);
    EXPECT_EQ(host_.hardware("03:00.4").flash(0x70000, 4), "CBIO");
    EXPECT_TRUE(files().empty());
}

// A card was exchanged, or the bus was numbered again, while the question waited.
TEST_F(FlashTerminal, AnotherAdapterAfterTheQuestionIsNotChanged) {
    const auto attached = host_.attach();
    test::Terminal terminal({"flash", "config-erase", "03:00.4"}, {.directory = directory_.path()});
    ASSERT_TRUE(terminal.wait_for("Go on? [y/N] "));
    kxsim::Hardware hardware = host_.hardware("03:00.4");
    const std::size_t serial = hardware.eeprom(0, KX_Q4_EEPROM_SIZE).find("PT\033[2J1");
    ASSERT_NE(serial, std::string::npos);
    hardware.write_eeprom(serial, "QX");
    terminal.type("yes\n");
    EXPECT_EQ(terminal.finish(), 5);
    EXPECT_THAT(terminal.screen(), HasSubstr("expected the serial number PT"));
    EXPECT_THAT(terminal.screen(), HasSubstr("found QX"));
    EXPECT_THAT(terminal.screen(), HasSubstr("nothing was changed"));
    EXPECT_EQ(hardware.flash(0x70000, 4), "CBIO");
    EXPECT_TRUE(files().empty());
}

TEST_F(FlashTerminal, InterruptedWhileItWritesFinishesFirst) {
    const std::string image = test::boot_rom({.size = 0x60000});
    directory_.write("rom", image);
    const Session session =
        run({"flash", "write-boot", "03:00.4", "rom", "--yes", "--no-backup"}, "\x03", "Erasing");
    EXPECT_THAT(session.exit, testing::AnyOf(0, 128 + SIGINT)) << session.screen;
    EXPECT_EQ(host_.hardware("03:00.4").flash(0, image.size()), image);
    EXPECT_THAT(session.screen, HasSubstr("Verifying: 384 of 384 KiB (100%)"));
}

TEST_F(FlashTerminal, ProgressIsOneLineWithRateAndTimeLeft) {
    const Session session = run({"flash", "config-erase", "03:00.4", "--yes", "--no-backup"}, "");
    EXPECT_EQ(session.exit, 0) << session.screen;
    EXPECT_THAT(session.screen, Not(HasSubstr("Go on?")));
    EXPECT_THAT(
        session.screen, testing::ContainsRegex("\r\033\\[KVerifying: 64 of 64 KiB \\(100%\\), "
                                               "[0-9]+\\.[0-9] KiB/s, 0:00 left\r\n"));
}

}  // namespace
