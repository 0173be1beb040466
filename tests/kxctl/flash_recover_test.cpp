// Unfinished changes of a flash: what is refused, what recover shows and does, and the journal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kxctl/flash_changes.hpp"
#include "kxctl/terminal.hpp"

namespace {

using test::FlashHost;
using testing::AllOf;
using testing::HasSubstr;
using Json = nlohmann::json;

const std::string kOpen = std::string(test::kFlashJournal) + "/open";

class Unfinished : public testing::Test {
protected:
    // A change of the boot option ROM that stopped after its erase and one page.
    Unfinished() {
        const test::Result result = stop_a_change();
        EXPECT_EQ(result.exit, 4) << result.err;
        EXPECT_TRUE(bench_.is_unfinished());
    }

    test::Result stop_a_change() {
        bench_.hardware().faults({.endless_write_at = 2});
        test::Result result = bench_.run(write_);
        bench_.hardware().restore_power();
        bench_.hardware().faults({});
        return result;
    }

    std::string old_rom() { return bench_.old_content.substr(0, 0x10000); }
    std::string rom() { return bench_.hardware().flash(0, 0x10000); }
    std::string new_rom() {
        return test::boot_image(test::kNewRomSize, 1) +
               std::string(0x10000 - test::kNewRomSize, '\xFF');
    }

    // Both refuse, and the flash stays as it is.
    void expect_refused(int exit, const std::string& text) {
        const std::string before = bench_.whole();
        for (const char* way : {"--continue", "--roll-back"}) {
            const test::Result result = bench_.recover(way);
            EXPECT_EQ(result.exit, exit) << result.err;
            EXPECT_EQ(result.out, "");
            EXPECT_THAT(result.err, HasSubstr(text));
        }
        EXPECT_TRUE(bench_.whole() == before);
    }

    Json status() { return test::json_on(bench_.host, {"flash", "status"}); }

    // The files of the journal on another host, as when the disk moved there.
    void copy_journal(kxsim::Host& other) {
        for (const char* file : {"/record.toml", "/old.bin", "/new.bin"}) {
            other.file(kOpen + file, bench_.host.read(kOpen + file));
        }
    }

    const std::vector<std::string> write_ = {"flash",   "write-boot", "03:00.4",
                                             "new-rom", "--yes",      "--no-backup"};
    FlashHost bench_{test::kFlashChips[0]};
};

TEST_F(Unfinished, RefusesOtherChangesAndNamesTheCommand) {
    const std::string before = bench_.whole();
    for (const std::vector<std::string>& words :
         {write_,
          {"flash", "erase-boot", "03:00.4", "--yes"},
          {"flash", "erase-boot", "03:00.4", "--dry-run"},
          {"flash", "config-erase", "0000:03:00.4", "--yes"},
          {"flash", "config-default", "03:00.4", "--yes"},
          {"flash", "config-write", "03:00.4", "new-record", "--yes"}}) {
        const test::Result result = bench_.run(words);
        EXPECT_EQ(result.exit, 5) << words[1];
        EXPECT_THAT(result.err, HasSubstr("first run \"kxctl flash recover "));
    }
    EXPECT_TRUE(bench_.whole() == before);
    EXPECT_EQ(bench_.run({"flash", "info", "03:00.4"}).exit, 0) << "reading goes on";
    EXPECT_EQ(bench_.run({"flash", "dump", "03:00.4", "dumped"}).exit, 0);
}

TEST_F(Unfinished, IsFinishedWithTheNewContent) {
    const Json reply = test::json_on(bench_.host, {"flash", "recover", "03:00.4", "--continue"});
    EXPECT_EQ(reply.at("changed"), true);
    EXPECT_EQ(reply.at("verified"), true);
    EXPECT_EQ(reply.at("change").at("state"), "written");
    EXPECT_TRUE(rom() == new_rom());
    EXPECT_EQ(status().at("changes").at(0).at("state"), "written");
    EXPECT_EQ(bench_.run(write_).exit, 0) << "changes are allowed again";
}

TEST_F(Unfinished, IsTakenBack) {
    const test::Result result = bench_.recover("--roll-back");
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("The flash has the old content, as read back."));
    EXPECT_TRUE(bench_.whole() == bench_.old_content);
    EXPECT_EQ(status().at("changes").at(0).at("state"), "rolled-back");
}

TEST_F(Unfinished, IsShownSectorBySector) {
    Json reply = test::json_on(bench_.host, {"flash", "recover", "03:00.4", "--dry-run"});
    EXPECT_EQ(reply.at("dry_run"), true);
    EXPECT_EQ(reply.at("sectors").at(0).at("content"), "mixed");
    EXPECT_EQ(reply.at("change").at("command"), "flash write-boot");
    for (const auto& [content, name] : std::vector<std::pair<std::string, const char*>>{
             {old_rom(), "old"}, {new_rom(), "new"}, {std::string(0x10000, '\xFF'), "erased"}}) {
        bench_.hardware().write_flash(0, content);
        reply = test::json_on(bench_.host, {"flash", "recover", "03:00.4", "--dry-run"});
        EXPECT_EQ(reply.at("sectors").at(0).at("content"), name);
    }
    EXPECT_TRUE(bench_.is_unfinished()) << "nothing was done";
}

TEST_F(Unfinished, SectorsThatAreRightAreNotWritten) {
    bench_.hardware().write_flash(0, new_rom());
    const auto before = bench_.hardware().counts();
    const Json reply = test::json_on(bench_.host, {"flash", "recover", "03:00.4", "--continue"});
    EXPECT_EQ(reply.at("changed"), false);
    EXPECT_EQ(bench_.hardware().counts().erases, before.erases);
    EXPECT_EQ(bench_.hardware().counts().programs, before.programs);
    EXPECT_FALSE(bench_.is_unfinished());
}

TEST_F(Unfinished, IsListedWithItsRecord) {
    const Json change = status().at("changes").at(0);
    EXPECT_EQ(change.at("state"), "unfinished");
    EXPECT_EQ(change.at("location"), "0000:03:00.4");
    EXPECT_EQ(change.at("serial_number"), "PT1");
    EXPECT_EQ(change.at("chip"), "Q5");
    EXPECT_EQ(change.at("address"), 0);
    EXPECT_EQ(change.at("size_bytes"), 0x10000);
    EXPECT_EQ(change.at("directory"), kOpen);
    EXPECT_EQ(bench_.host.read(kOpen + "/old.bin"), old_rom());
    EXPECT_EQ(bench_.host.read(kOpen + "/new.bin"), new_rom());
    EXPECT_EQ(bench_.host.mode(kOpen), 0700U);
    EXPECT_EQ(bench_.host.mode("/var/lib/kxctl"), 0700U);
    EXPECT_EQ(bench_.host.mode(kOpen + "/record.toml"), 0600U);
    EXPECT_THAT(
        bench_.run({"flash", "status"}).out,
        HasSubstr(change.at("new_sha256").get<std::string>().substr(0, 12)));
    const Json of_card = test::json_on(bench_.host, {"flash", "status", "03:00.4"});
    EXPECT_EQ(of_card.at("changes").size(), 1U);
}

// --- the question ---

TEST_F(Unfinished, AsksOnATerminal) {
    const auto attached = bench_.host.attach();
    for (const auto& [answer, exit] : {std::pair("\n", 1), std::pair("y\n", 1)}) {
        test::Terminal terminal({"flash", "recover", "03:00.4"});
        ASSERT_TRUE(terminal.wait_for("[c/r/N] ")) << terminal.screen();
        terminal.type(answer);
        EXPECT_EQ(terminal.finish(), exit);
        EXPECT_THAT(terminal.screen(), HasSubstr("Nothing was changed"));
        EXPECT_THAT(terminal.screen(), HasSubstr("0x0-0xffff  mixed"));
    }
    test::Terminal terminal({"flash", "recover", "03:00.4"});
    ASSERT_TRUE(terminal.wait_for("[c/r/N] ")) << terminal.screen();
    terminal.type("r\n");
    EXPECT_EQ(terminal.finish(), 0) << terminal.screen();
    EXPECT_TRUE(bench_.whole() == bench_.old_content);
}

TEST_F(Unfinished, WithoutATerminalNeedsAnOption) {
    const test::Result result = bench_.run({"flash", "recover", "03:00.4"});
    EXPECT_EQ(result.exit, 2);
    EXPECT_EQ(
        result.err.substr(result.err.find("kxctl: ")),
        "kxctl: flash recover asks, and there is no terminal (--continue or --roll-back answers "
        "it)\n");
    EXPECT_EQ(bench_.run({"flash", "recover", "03:00.4", "--continue", "--roll-back"}).exit, 2);
    EXPECT_TRUE(bench_.is_unfinished());
}

// --- a damaged journal ---

TEST_F(Unfinished, WithADamagedRecordIsRefusedAndListed) {
    const std::string record = bench_.host.read(kOpen + "/record.toml");
    std::vector<std::string> damaged = {
        "", "\xFF\xFE", record.substr(0, record.size() / 2), record + "\n[", "format = 2\n"};
    for (std::size_t at = 0; at < record.size(); at = record.find('\n', at) + 1) {
        std::string without = record;
        without.erase(at, record.find('\n', at) + 1 - at);
        if (without.find("rest_sha256") != without.npos) {  // which old records do not have
            damaged.push_back(without);
        }
        if (record.find('\n', at) == record.npos) {
            break;
        }
    }
    for (const std::string& text : damaged) {
        bench_.host.file(kOpen + "/record.toml", text);
        expect_refused(1, "the journal of the unfinished change is damaged (");
        EXPECT_EQ(bench_.run(write_).exit, 5);
        const test::Result listed = bench_.run({"flash", "status"});
        EXPECT_EQ(listed.exit, 4) << text;
        EXPECT_THAT(listed.err, HasSubstr(kOpen + " is damaged: "));
    }
    EXPECT_GT(damaged.size(), 20U);
}

TEST_F(Unfinished, WithWrongNumbersIsRefused) {
    const std::string record = bench_.host.read(kOpen + "/record.toml");
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"end = 65536", "end = 65537"},
             {"end = 65536", "end = 131072"},
             {"end = 65536", "end = 0"},
             {"end = 65536", "end = 4294967296"},
             {"end = 65536", "end = -65536"},
             {"end = 65536", "end = '65536'"},
             {"sector_size = 65536", "sector_size = 0"}}) {
        std::string changed = record;
        ASSERT_NE(changed.find(from), changed.npos) << from;
        changed.replace(changed.find(from), from.size(), to);
        bench_.host.file(kOpen + "/record.toml", changed);
        expect_refused(1, "is damaged (");
    }
}

TEST_F(Unfinished, WithADamagedContentIsRefused) {
    for (const char* file : {"/old.bin", "/new.bin"}) {
        const std::string content = bench_.host.read(kOpen + file);
        std::string flipped = content;
        flipped[1000] = static_cast<char>(flipped[1000] ^ 1);
        for (const std::string& damaged : {flipped, content.substr(1), std::string()}) {
            bench_.host.file(kOpen + file, damaged);
            expect_refused(1, "it does not have the digest of its record");
        }
        bench_.host.remove(kOpen + file);
        expect_refused(1, "No such file or directory");
        bench_.host.file(kOpen + file, content);
    }
    EXPECT_EQ(bench_.recover("--continue").exit, 0) << "whole again";
}

TEST_F(Unfinished, LeavesTheWayFreeWhenItsDirectoryIsMovedAway) {
    bench_.host.remove(kOpen);
    EXPECT_EQ(bench_.run(write_).exit, 0);
}

// --- another adapter ---

TEST_F(Unfinished, IsNotRecoveredOnAnotherAdapterInTheSlot) {
    kxsim::Host other;
    other.adapter(test::adapter_of(test::kFlashChips[0], "PT2"));
    copy_journal(other);
    const std::string before = other.hardware("03:00.4").flash(0, 0x10000);
    const test::Result result = test::run_on(other, {"flash", "recover", "03:00.4", "--roll-back"});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(
        result.err, HasSubstr("03:00.4: the unfinished change is of another adapter: its serial "
                              "number is PT1, the number of this adapter is PT2\n"));
    EXPECT_TRUE(other.hardware("03:00.4").flash(0, 0x10000) == before);
    EXPECT_EQ(
        test::run_on(other, {"flash", "erase-boot", "03:00.4", "--yes", "--no-backup"}).exit, 0)
        << "it is not this adapter's change";
}

// --- an adapter whose serial number cannot be read any more ---

TEST_F(Unfinished, WithoutItsSerialNumberNeedsSomebodyWhoIsSure) {
    bench_.hardware().write_eeprom(0, std::string(0x800, '\xFF'));
    EXPECT_EQ(bench_.run(write_).exit, 5) << "it may be this adapter's change";
    expect_refused(2, "flash recover asks, and there is no terminal (--force answers it)");
    const Json shown = test::json_on(bench_.host, {"flash", "recover", "03:00.4", "--dry-run"});
    EXPECT_EQ(shown.at("identified_by"), "content");
    EXPECT_EQ(shown.at("serial_number"), nullptr);
    const test::Result result =
        bench_.run({"flash", "recover", "03:00.4", "--roll-back", "--force"});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_TRUE(bench_.whole() == bench_.old_content);
    EXPECT_FALSE(bench_.is_unfinished());
    EXPECT_EQ(status().at("changes").at(0).at("state"), "rolled-back");
    EXPECT_EQ(bench_.run(write_).exit, 0) << "changes are allowed again";
}

TEST_F(Unfinished, WithoutItsSerialNumberIsContinuedAfterTheQuestion) {
    bench_.hardware().write_eeprom(0, std::string(0x800, '\xFF'));
    const auto attached = bench_.host.attach();
    for (const auto& [answer, exit] : {std::pair("n\n", 1), std::pair("y\n", 0)}) {
        test::Terminal terminal({"flash", "recover", "03:00.4", "--continue"});
        ASSERT_TRUE(terminal.wait_for("Is it this adapter? [y/N] ")) << terminal.screen();
        EXPECT_THAT(terminal.screen(), HasSubstr("Serial number in the journal: PT1"));
        terminal.type(answer);
        EXPECT_EQ(terminal.finish(), exit) << terminal.screen();
    }
    EXPECT_TRUE(rom() == new_rom());
}

TEST_F(Unfinished, WithoutItsSerialNumberAndWithAnotherContentIsRefused) {
    bench_.hardware().write_eeprom(0, std::string(0x800, '\xFF'));
    bench_.hardware().write_flash(0x70010, "x");
    const std::string before = bench_.whole();
    const test::Result result =
        bench_.run({"flash", "recover", "03:00.4", "--continue", "--force"});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(
        result.err,
        HasSubstr("its serial number is PT1, the number of this adapter is unknown, and what is in "
                  "the flash beside the sectors of the change differs"));
    EXPECT_TRUE(bench_.whole() == before);
    EXPECT_TRUE(bench_.is_unfinished());
}

TEST_F(Unfinished, WithoutItsSerialNumberNeedsARecordThatSaysWhatIsBesideIt) {
    bench_.hardware().write_eeprom(0, std::string(0x800, '\xFF'));
    std::string record = bench_.host.read(kOpen + "/record.toml");
    const std::size_t line = record.find("rest_sha256");
    ASSERT_NE(line, record.npos);
    record.erase(line, record.find('\n', line) + 1 - line);
    bench_.host.file(kOpen + "/record.toml", record);
    const test::Result result =
        bench_.run({"flash", "recover", "03:00.4", "--continue", "--force"});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(result.err, HasSubstr("the record does not say what is beside the sectors"));
}

// An old record has no digest of the rest; with a serial number it needs none.
TEST_F(Unfinished, WithAnOldRecordIsRecoveredByItsSerialNumber) {
    std::string record = bench_.host.read(kOpen + "/record.toml");
    const std::size_t line = record.find("rest_sha256");
    record.erase(line, record.find('\n', line) + 1 - line);
    bench_.host.file(kOpen + "/record.toml", record);
    EXPECT_EQ(bench_.recover("--continue").exit, 0);
    EXPECT_TRUE(rom() == new_rom());
}

TEST_F(Unfinished, WithoutItsSerialNumberIsNotRecoveredInAnotherSlot) {
    kxsim::Host other;
    test::FlashChip chip = test::kFlashChips[0];
    chip.location = "0a:00.4";
    kxsim::Adapter adapter = test::adapter_of(chip);
    adapter.eeprom = {};
    other.adapter(adapter);
    copy_journal(other);
    const test::Result result =
        test::run_on(other, {"flash", "recover", "0a:00.4", "--continue", "--force"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_THAT(result.out, HasSubstr("no change of its flash is unfinished"));
    EXPECT_TRUE(other.hardware("0a:00.4").flash(0, 0x10000) != new_rom());
}

TEST_F(Unfinished, FollowsItsAdapterToAnotherSlot) {
    kxsim::Host other;
    test::FlashChip chip = test::kFlashChips[0];
    chip.location = "0a:00.4";
    other.adapter(test::adapter_of(chip));
    copy_journal(other);
    EXPECT_EQ(
        test::run_on(other, {"flash", "erase-boot", "0a:00.4", "--yes", "--no-backup"}).exit, 5);
    EXPECT_EQ(test::run_on(other, {"flash", "recover", "0a:00.4", "--continue"}).exit, 0);
    EXPECT_TRUE(other.hardware("0a:00.4").flash(0, 0x10000) == new_rom());
}

TEST_F(Unfinished, IsNotTakenForAnAdapterWithTheSameSerialNumber) {
    test::FlashChip chip = test::kFlashChips[0];
    chip.location = "0a:00.4";
    bench_.host.adapter(test::adapter_of(chip));
    const std::string before = bench_.host.hardware("0a:00.4").flash(0, 0x10000);
    const test::Result result = bench_.run({"flash", "recover", "0a:00.4", "--continue"});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(result.err, HasSubstr("the adapter at 0000:03:00.4 has the same serial number"));
    EXPECT_TRUE(bench_.host.hardware("0a:00.4").flash(0, 0x10000) == before);
    EXPECT_EQ(bench_.recover("--continue").exit, 0);
}

TEST_F(Unfinished, IsRefusedOnAnAdapterOfAnotherChip) {
    kxsim::Host other;
    test::FlashChip chip = test::kFlashChips[1];
    chip.location = "03:00.4";
    other.adapter(test::adapter_of(chip));
    copy_journal(other);
    const test::Result result = test::run_on(other, {"flash", "recover", "03:00.4", "--continue"});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(result.err, HasSubstr("it is a Q5 with device id 5410, this adapter is a Q4"));
}

// --- a journal that cannot be written, and its end ---

class JournalOfChanges : public testing::Test {
protected:
    test::Result write(const char* rom, std::vector<std::string> more = {}) {
        std::vector<std::string> words = {"flash", "write-boot", "03:00.4",
                                          rom,     "--yes",      "--no-backup"};
        words.insert(words.end(), more.begin(), more.end());
        return bench_.run(words);
    }

    // The flash is as it was, and the next change works.
    void expect_untouched() {
        EXPECT_TRUE(bench_.whole() == bench_.old_content);
        EXPECT_EQ(bench_.hardware().counts().erases, 0U);
        EXPECT_FALSE(bench_.is_unfinished());
        bench_.host.clear_faults();
        EXPECT_EQ(write("new-rom").exit, 0);
    }

    std::vector<unsigned> numbers() {
        std::vector<unsigned> all;
        const Json status = test::json_on(bench_.host, {"flash", "status"});
        for (const Json& change : status.at("changes")) {
            all.push_back(change.at("number").get<unsigned>());
        }
        return all;
    }

    FlashHost bench_{test::kFlashChips[0]};
};

TEST_F(JournalOfChanges, FullDiskStopsTheChangeBeforeTheFirstErase) {
    bench_.host.fail({.call = "write", .times = 0, .error = ENOSPC, .object = "/var/lib/kxctl/*"});
    const test::Result result = write("new-rom");
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, AllOf(HasSubstr("/var/lib/kxctl/"), HasSubstr("No space left")));
    expect_untouched();
}

TEST_F(JournalOfChanges, DirectoryThatCannotBeWrittenStopsTheChange) {
    bench_.host.fail({.call = "mkdir", .times = 0, .error = EROFS, .object = "/var/lib/kxctl"});
    const test::Result result = write("new-rom");
    EXPECT_EQ(result.exit, 13);
    EXPECT_THAT(result.err, HasSubstr("/var/lib/kxctl: Read-only file system\n"));
    expect_untouched();
}

TEST_F(JournalOfChanges, DiskThatDoesNotFlushStopsTheChange) {
    bench_.host.fail(
        {.call = "fsync", .times = 0, .error = EIO, .object = "/var/lib/kxctl/flash*"});
    EXPECT_EQ(write("new-rom").exit, 1);
    expect_untouched();
}

TEST_F(JournalOfChanges, ChangeThatCannotBeClosedStaysUnfinished) {
    bench_.host.fail({.call = "rename", .error = ENOSPC, .object = kOpen});
    const test::Result result = write("new-rom");
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("the change is not finished"));
    EXPECT_EQ(
        test::json_on(bench_.host, {"flash", "recover", "03:00.4", "--continue"}).at("changed"),
        false);
    EXPECT_TRUE(
        bench_.hardware().flash(0, test::kNewRomSize) == test::boot_image(test::kNewRomSize, 1));
    EXPECT_FALSE(bench_.is_unfinished());
}

TEST_F(JournalOfChanges, FlippedBitLeavesItUnfinishedAndItIsRepeated) {
    bench_.hardware().faults({.flipped_bit_at = 2});
    const test::Result result = write("new-rom");
    EXPECT_EQ(result.exit, 6);
    EXPECT_THAT(result.err, HasSubstr("\"kxctl flash recover 03:00.4\" continues it"));
    EXPECT_EQ(bench_.recover("--continue").exit, 0);
    EXPECT_TRUE(
        bench_.hardware().flash(0, test::kNewRomSize) == test::boot_image(test::kNewRomSize, 1));
}

TEST_F(JournalOfChanges, KeepsTheNewestFive) {
    for (unsigned i = 0; i < 4; ++i) {
        ASSERT_EQ(write("new-rom").exit, 0);
        ASSERT_EQ(bench_.run({"flash", "erase-boot", "03:00.4", "--yes", "--no-backup"}).exit, 0);
    }
    EXPECT_EQ(numbers(), (std::vector<unsigned>{8, 7, 6, 5, 4}));
    ASSERT_EQ(write("new-rom", {"--keep", "2"}).exit, 0);
    EXPECT_EQ(numbers(), (std::vector<unsigned>{9, 8}));
    ASSERT_EQ(
        bench_.run({"flash", "erase-boot", "03:00.4", "--yes", "--no-backup", "--keep=0"}).exit, 0);
    EXPECT_TRUE(numbers().empty());
    for (const char* wrong : {"-1", "x", "1001", "1x", ""}) {
        EXPECT_EQ(write("new-rom", {std::string("--keep=") + wrong}).exit, 2) << wrong;
    }
}

TEST_F(JournalOfChanges, SameContentIsNoChange) {
    ASSERT_EQ(write("new-rom").exit, 0);
    const auto before = bench_.hardware().counts();
    const Json reply =
        test::json_on(bench_.host, {"flash", "write-boot", "03:00.4", "new-rom", "--yes"});
    EXPECT_EQ(reply.at("changed"), false);
    EXPECT_EQ(reply.at("erased").at("numbers"), Json::array());
    EXPECT_EQ(reply.at("written"), Json::array());
    EXPECT_EQ(reply.at("backup"), nullptr);
    EXPECT_EQ(reply.at("old_sha256"), reply.at("new_sha256"));
    EXPECT_EQ(bench_.hardware().counts().erases, before.erases);
    EXPECT_EQ(numbers().size(), 1U);
}

TEST_F(JournalOfChanges, NothingToRecoverIsSaid) {
    const test::Result result = bench_.recover("--continue");
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.out, "03:00.4: no change of its flash is unfinished\n");
    EXPECT_EQ(test::json_on(bench_.host, {"flash", "recover", "03:00.4"}).at("change"), nullptr);
    EXPECT_EQ(bench_.run({"flash", "status"}).out, "The journal has no change of a flash\n");
}

TEST_F(JournalOfChanges, HostileSerialNumberStaysInTheJournal) {
    kxsim::Host host;
    host.adapter(test::adapter_of(test::kFlashChips[0], "../../x\033[2J"));
    EXPECT_EQ(
        test::run_on(host, {"flash", "erase-boot", "03:00.4", "--yes", "--no-backup"}).exit, 0);
    EXPECT_TRUE(host.exists("/var/lib/kxctl/flash/serial-..%2F..%2Fx%1B%5B2J/done/1.written"));
}

TEST_F(JournalOfChanges, AdapterWithoutASerialNumberIsKnownByItsLocation) {
    kxsim::Host host;
    kxsim::Adapter adapter = test::adapter_of(test::kFlashChips[0]);
    adapter.eeprom = {};
    host.adapter(adapter);
    host.hardware("03:00.4").faults({.endless_write_at = 1});
    EXPECT_EQ(
        test::run_on(host, {"flash", "erase-boot", "03:00.4", "--yes", "--no-backup"}).exit, 4);
    EXPECT_TRUE(host.exists("/var/lib/kxctl/flash/location-0000:03:00.4/open"));
    host.hardware("03:00.4").restore_power();
    host.hardware("03:00.4").faults({});
    EXPECT_EQ(test::run_on(host, {"flash", "recover", "03:00.4", "--roll-back"}).exit, 0);
}

}  // namespace
