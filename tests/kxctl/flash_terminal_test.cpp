// The question and the progress of kxctl flash on a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "kxctl/on_host.hpp"

namespace {

using testing::HasSubstr;
using testing::Not;

struct Session {
    int exit;
    std::string screen;
};

// Something typed once a text is on the screen; at once when it is empty.
struct Typed {
    std::string after;
    std::string text;
};

// kxctl with a terminal as all three standard descriptors.
Session run_on_terminal(
    kxsim::Host& host, std::vector<std::string> words, const Typed& typed,
    const std::string& directory) {
    const auto attached = host.attach();
    words.insert(words.begin(), KXCTL_PROGRAM);
    test::Setup setup;
    std::vector<std::string> environment = test::detail::environment_of(setup);
    const std::vector<char*> arguments = test::detail::pointers(words);
    const std::vector<char*> variables = test::detail::pointers(environment);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        if (chdir(directory.c_str()) == 0) {
            execve(arguments[0], arguments.data(), variables.data());
        }
        _exit(127);
    }
    Session session{-1, ""};
    bool waiting = true;
    std::array<char, 4096> chunk;
    for (ssize_t got = 0; got >= 0;) {
        session.screen.append(chunk.data(), static_cast<std::size_t>(got));
        if (waiting && session.screen.find(typed.after) != std::string::npos) {
            waiting = false;
            EXPECT_EQ(
                write(terminal, typed.text.data(), typed.text.size()),
                static_cast<ssize_t>(typed.text.size()));
        }
        got = read(terminal, chunk.data(), chunk.size());
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(terminal);
    session.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return session;
}

class FlashTerminal : public testing::Test {
protected:
    FlashTerminal() {
        std::string path = (std::filesystem::temp_directory_path() / "kxctl-tty-XXXXXX").string();
        directory_ = mkdtemp(path.data());
        kxsim::Adapter adapter{.chip = "Q5", .location = "03:00.4"};
        adapter.eeprom.product_data = {.product = "Q520-CR", .serial = "PT\033[2J1"};
        adapter.flash.content = {{0x70000, "CBIO"}};
        host_.adapter(adapter);
    }
    ~FlashTerminal() override { std::filesystem::remove_all(directory_); }

    Session run(
        std::vector<std::string> words, const std::string& text, const std::string& after = "") {
        return run_on_terminal(host_, std::move(words), {after, text}, directory_);
    }

    [[nodiscard]] std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::string directory_;
    kxsim::Host host_;
};

TEST_F(FlashTerminal, QuestionNamesCardRegionAndCopy) {
    const Session session = run({"flash", "config-erase", "03:00.4"}, "yes\n");
    EXPECT_EQ(session.exit, 0) << session.screen;
    EXPECT_THAT(
        session.screen, HasSubstr("Card 03:00.4 (Q5, Q520-CR, serial number PT\uFFFD[2J1)\r\n"
                                  "region config: erase sector 7, 0x70000-0x7ffff\r\n"
                                  "copy before: kestrix-03.00.4-config-"));
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

TEST_F(FlashTerminal, InterruptedWhileItWritesFinishesFirst) {
    std::string image(0x60000, 'i');
    image.replace(0, 2, "\x55\xAA");
    std::ofstream(directory_ + "/rom", std::ios::binary) << image;
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
