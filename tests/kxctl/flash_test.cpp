// kxctl flash on a simulated host: what it shows, copies, refuses, changes and does not change.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "kxctl/boot_rom.hpp"
#include "kxctl/on_host.hpp"
#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;

constexpr const char* kQ5 = "03:00.4";
constexpr const char* kQ4 = "04:00.4";
constexpr const char* kQ3 = "05:00.0";

constexpr std::size_t kSector = 0x10000;
constexpr std::size_t kConfig = 0x70000;
constexpr std::size_t kFirmware = 0x80000;

std::string make_image(std::size_t size, unsigned seed = 1) {
    return test::boot_rom({.size = size, .seed = seed});
}

// As sha256sum prints it.
std::string sha256_of(const std::string& bytes) {
    const test::ScratchDirectory directory;
    const std::string file = directory.write("bytes", bytes);
    return test::shell("sha256sum " + file).output.substr(0, 64);
}

class Flash : public testing::Test {
protected:
    Flash() {
        add("Q5", kQ5, 0x5410, {.product = "Q520-CR", .serial = "PT05160001"});
        add("Q4", kQ4, 0x4410, {.product = "Q404-CR", .serial = "PT04140007"});
        add("Q3", kQ3, 0x31, {.product = "Q320-CR", .serial = "PT03080042"});
    }

    void add(
        const char* chip, const char* location, std::uint16_t device_id,
        const kxsim::ProductData& data) {
        kxsim::Adapter adapter{.chip = chip, .location = location};
        adapter.device_id = device_id;
        adapter.eeprom.product_data = data;
        adapter.flash.content = {{0, make_image(1024, 99)}, {0x60000, "between"}};
        host_.adapter(adapter);
    }

    // The words behind "flash".
    test::Result run(std::vector<std::string> words) {
        words.insert(words.begin(), "flash");
        return test::run_on(host_, std::move(words));
    }
    Json json(std::vector<std::string> words, int exit = 0) {
        words.insert(words.begin(), "flash");
        return test::json_on(host_, std::move(words), exit);
    }

    [[nodiscard]] std::string path(const std::string& name) const { return directory_ / name; }

    std::string file(const std::string& name, const std::string& content) {
        return directory_.write(name, content);
    }

    [[nodiscard]] std::string content(const std::string& name) const {
        return test::file_text(path(name));
    }

    [[nodiscard]] std::size_t files() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator()));
    }

    kxsim::Hardware hardware(const std::string& location) { return host_.hardware(location); }

    std::string whole(const std::string& location) {
        return hardware(location).flash(0, hardware(location).flash_size());
    }

    // A refusal: one line on standard error, nothing on standard output, no adapter changed.
    void expect_refusal(std::vector<std::string> words, int exit, const std::string& line) {
        const std::string before[] = {whole(kQ5), whole(kQ4), whole(kQ3)};
        const test::Result result = run(std::move(words));
        EXPECT_EQ(result.exit, exit);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "kxctl: " + line + "\n");
        EXPECT_EQ(whole(kQ5), before[0]);
        EXPECT_EQ(whole(kQ4), before[1]);
        EXPECT_EQ(whole(kQ3), before[2]);
        for (const char* location : {kQ5, kQ4, kQ3}) {
            EXPECT_EQ(hardware(location).counts().erases, 0U);
            EXPECT_EQ(hardware(location).counts().programs, 0U);
        }
    }

    const test::ScratchDirectory directory_;
    kxsim::Host host_;
};

// The two families write in different orders and with different checks.
class EachFamily : public Flash, public testing::WithParamInterface<const char*> {
protected:
    std::string location_ = GetParam();
};

INSTANTIATE_TEST_SUITE_P(
    Locations, EachFamily, testing::Values(kQ5, kQ4, kQ3),
    [](const auto& row) { return "Bus" + std::string(row.param).substr(0, 2); });

// --- info ---

TEST_F(Flash, InfoTellsWhatTheFlashTells) {
    hardware(kQ5).write_flash(16, std::string("\1\2\3\4", 4));
    const Json reply = json({"info", kQ5});
    EXPECT_EQ(reply.at("location"), kQ5);
    EXPECT_EQ(reply.at("chip"), "Q5");
    EXPECT_EQ(reply.at("product"), "Q520-CR");
    EXPECT_EQ(reply.at("serial_number"), "PT05160001");
    EXPECT_EQ(
        reply.at("flash"), Json(
                               {{"manufacturer", 0x20},
                                {"size_bytes", 4 << 20},
                                {"sectors", 64},
                                {"sector_size_bytes", 65536}}));
    const Json& regions = reply.at("regions");
    ASSERT_EQ(regions.size(), 3U);
    EXPECT_EQ(
        regions[0], Json(
                        {{"name", "boot"},
                         {"address", 0},
                         {"size_bytes", 0x60000},
                         {"valid", true},
                         {"version", "1.2.3.4"}}));
    EXPECT_EQ(
        regions[1],
        Json(
            {{"name", "config"}, {"address", 0x70000}, {"size_bytes", 0x10000}, {"valid", false}}));
    EXPECT_EQ(
        regions[2],
        Json({{"name", "firmware"}, {"address", 0x80000}, {"size_bytes", (4 << 20) - 0x80000}}));
}

TEST_F(Flash, InfoOfErasedImagesHasNoVersion) {
    hardware(kQ4).write_flash(0, std::string(64, '\xFF'));
    const Json regions = json({"info", kQ4}).at("regions");
    EXPECT_EQ(regions[0].at("valid"), false);
    EXPECT_EQ(regions[0].at("version"), nullptr);
    hardware(kQ4).write_flash(kConfig, "CBIO");
    EXPECT_EQ(json({"info", kQ4}).at("regions")[1].at("valid"), true);
}

TEST_F(Flash, InfoOfQ3KnowsItsFixedFlash) {
    hardware(kQ3).write_flash(0x80, std::string("PXE-2.0 3.4.0.250\0", 18));
    hardware(kQ3).write_flash(0x30000, std::string("CIB\0\1", 5));
    const Json reply = json({"info", kQ3});
    EXPECT_EQ(reply.at("flash").at("manufacturer"), nullptr) << "it is never asked";
    EXPECT_EQ(reply.at("flash").at("size_bytes"), 512 << 10);
    EXPECT_EQ(reply.at("regions").size(), 2U);
    EXPECT_EQ(reply.at("regions")[0].at("version"), "3.4 build 250");
    EXPECT_EQ(reply.at("regions")[1].at("valid"), true);
}

TEST_F(Flash, InfoChangesNothing) {
    const std::string before = whole(kQ5);
    EXPECT_EQ(run({"info", kQ5}).exit, 0);
    EXPECT_EQ(whole(kQ5), before);
    EXPECT_EQ(hardware(kQ5).counts().erases, 0U);
    EXPECT_EQ(hardware(kQ4).counts().transfers, 0U) << "another adapter is not touched";
    EXPECT_EQ(hardware(kQ4).counts().dwords_read, 0U);
}

TEST_F(Flash, EveryVerbNeedsAnAdapterThatIsThere) {
    const std::string rom = file("rom.bin", make_image(1024));
    const std::string line = "No adapter with a flash at 9f:1e.0";
    expect_refusal({"info", "9f:1e.0"}, 3, line);
    expect_refusal({"dump", "9f:1e.0", path("new")}, 3, line);
    expect_refusal({"write-boot", "9f:1e.0", rom, "--yes"}, 3, line);
    expect_refusal({"erase-boot", "9f:1e.0", "--yes"}, 3, line);
    expect_refusal({"config-show", "9f:1e.0"}, 3, line);
    expect_refusal({"config-default", "9f:1e.0", "--yes"}, 3, line);
    expect_refusal({"config-erase", "9f:1e.0", "--yes"}, 3, line);
    expect_refusal({"config-write", "9f:1e.0", rom, "--yes"}, 3, line);
    EXPECT_EQ(files(), 1U) << "no copy is begun";
}

TEST_F(Flash, LocationMayHaveItsDomain) {
    EXPECT_EQ(json({"info", "0000:03:00.4"}).at("chip"), "Q5");
    EXPECT_EQ(run({"info", "0001:03:00.4"}).exit, 3);
}

TEST_F(Flash, UnknownFlashIsNotWorkedOn) {
    hardware(kQ5).identify_as(0xEF, 0x40, 0x16);
    const std::string line = "03:00.4: the flash is of an unknown manufacturer";
    expect_refusal({"info", kQ5}, 14, line);
    expect_refusal({"erase-boot", kQ5, "--yes"}, 14, line);
}

TEST_F(Flash, FlashOfUnknownSectorsIsShownButNotErased) {
    hardware(kQ5).identify_as(0x20, 0x20, 19);
    const Json reply = json({"info", kQ5});
    EXPECT_EQ(reply.at("flash").at("size_bytes"), 512 << 10);
    EXPECT_EQ(reply.at("flash").at("sectors"), nullptr);
    expect_refusal({"erase-boot", kQ5, "--yes"}, 14, "03:00.4: the flash's sectors are not known");
}

TEST_F(Flash, BusyControllerHasItsExitCode) {
    hardware(kQ5).faults({.stuck_busy_at = 1});
    const test::Result result = run({"info", kQ5});
    EXPECT_EQ(result.exit, 5);
    EXPECT_EQ(result.err, "kxctl: 03:00.4: identifying the flash: the flash controller is busy\n");
}

TEST_P(EachFamily, WindowThatIsRefusedIsAMatterOfPermission) {
    host_.fail({.call = "open", .times = 0, .error = EPERM, .object = "/dev/mem"});
    const std::string line = location_ + ": /dev/mem: Operation not permitted";
    expect_refusal({"info", location_}, 13, line);
    expect_refusal({"erase-boot", location_, "--yes", "--no-backup"}, 13, line);
    expect_refusal({"dump", location_, path("new")}, 13, line);
    EXPECT_EQ(files(), 0U);
}

// --- dump ---

TEST_F(Flash, DumpHoldsTheFlashByteForByte) {
    hardware(kQ5).write_flash(kFirmware + 5, "firmware");
    const test::Result result = run({"dump", kQ5, path("all")});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(
        result.out, "4194304 bytes from 0x0 written to " + path("all") + "\nSHA-256 " +
                        sha256_of(whole(kQ5)) + "\n");
    EXPECT_EQ(
        result.err,
        "Reading flash: 1024 of 4096 KiB (25%)\n"
        "Reading flash: 2048 of 4096 KiB (50%)\n"
        "Reading flash: 3072 of 4096 KiB (75%)\n"
        "Reading flash: 4096 of 4096 KiB (100%)\n");
    EXPECT_EQ(content("all"), whole(kQ5));
}

TEST_F(Flash, DumpOfARegionHoldsThatRegion) {
    hardware(kQ5).write_flash(kConfig, "CBIO");
    const Json reply = json({"dump", kQ5, path("config"), "--region", "config"});
    EXPECT_EQ(reply.at("region"), "config");
    EXPECT_EQ(reply.at("address"), 0x70000);
    EXPECT_EQ(reply.at("size_bytes"), 0x10000);
    EXPECT_EQ(reply.at("file"), path("config"));
    EXPECT_EQ(reply.at("sha256"), sha256_of(hardware(kQ5).flash(kConfig, 0x10000)));
    EXPECT_EQ(content("config"), hardware(kQ5).flash(kConfig, 0x10000));
    EXPECT_EQ(run({"dump", kQ3, path("q3"), "--region=boot"}).exit, 0);
    EXPECT_EQ(content("q3"), hardware(kQ3).flash(0, 0x30000));
}

TEST_F(Flash, DumpOfAllIsTheWholeFlashWithItsDigest) {
    const Json reply = json({"dump", kQ3, path("all"), "--all"});
    EXPECT_EQ(reply.at("region"), "all");
    EXPECT_EQ(reply.at("sha256"), sha256_of(whole(kQ3)));
    EXPECT_EQ(content("all"), whole(kQ3));
    const test::Result copied = run({"dump", kQ3, "-", "--all"});
    EXPECT_TRUE(copied.out == whole(kQ3));
    EXPECT_THAT(copied.err, HasSubstr("kxctl: SHA-256 " + sha256_of(whole(kQ3)) + "\n"));
    expect_refusal(
        {"dump", kQ3, path("new"), "--all", "--region", "boot"}, 2,
        "flash dump: --all and --region exclude each other");
}

TEST_F(Flash, DumpReplacesNoFileAndNeedsARegionThatIsThere) {
    const std::string old = file("old", "kept");
    expect_refusal({"dump", kQ5, old}, 2, old + ": File exists");
    EXPECT_EQ(content("old"), "kept");
    expect_refusal(
        {"dump", kQ3, path("new"), "--region", "firmware"}, 14,
        "05:00.0: the flash has no region firmware");
    EXPECT_FALSE(fs::exists(path("new")));
}

TEST_F(Flash, DumpThatFailsLeavesNoFile) {
    const auto before = hardware(kQ3).counts().transfers;
    ASSERT_EQ(run({"dump", kQ3, path("first")}).exit, 0);
    const auto taken = hardware(kQ3).counts().transfers - before;
    hardware(kQ3).faults({.power_cut_at = taken / 2});
    const test::Result result = run({"dump", kQ3, path("second")});
    EXPECT_NE(result.exit, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("kxctl: 05:00.0: reading the flash at 0x"));
    EXPECT_FALSE(fs::exists(path("second")));
}

// --- verify ---

TEST_P(EachFamily, VerifyComparesAFileWithTheFlash) {
    const std::string before = whole(location_);
    const std::string same = file("same", before.substr(0, 1001));
    EXPECT_EQ(
        run({"verify", location_, same}).out, "1001 bytes from 0x0 are those of " + same +
                                                  "\nSHA-256 " + sha256_of(before.substr(0, 1001)) +
                                                  "\n");
    std::string changed = before.substr(0, 1001);
    changed[40] = static_cast<char>(changed[40] ^ 1);
    changed[1000] = static_cast<char>(changed[1000] ^ 1);
    const std::string other = file("other", changed);
    const test::Result result = run({"verify", location_, other});
    EXPECT_EQ(result.exit, 4);
    EXPECT_EQ(
        result.out, "2 of 1001 bytes differ from " + other +
                        ", the first at 0x28\nSHA-256 of the flash  " +
                        sha256_of(before.substr(0, 1001)) + "\nSHA-256 of the file   " +
                        sha256_of(changed) + "\n");
    const Json reply = json({"verify", location_, other}, 4);
    EXPECT_EQ(reply.at("equal"), false);
    EXPECT_EQ(reply.at("different_bytes"), 2);
    EXPECT_EQ(reply.at("first_difference"), 40);
    EXPECT_EQ(reply.at("file_sha256"), sha256_of(changed));
    EXPECT_EQ(reply.at("flash_sha256"), sha256_of(before.substr(0, 1001)));
    EXPECT_TRUE(whole(location_) == before);
}

TEST_F(Flash, VerifyBeginsAtTheRegion) {
    hardware(kQ5).write_flash(kConfig, "CBIO");
    const std::string record = file("record", "CBIO");
    EXPECT_EQ(run({"verify", kQ5, record, "--region", "config"}).exit, 0);
    EXPECT_EQ(json({"verify", kQ5, record, "--region", "config"}).at("address"), kConfig);
    EXPECT_EQ(run({"verify", kQ5, record}).exit, 4);
}

TEST_F(Flash, VerifyRefusesFilesThatDoNotFit) {
    const std::string empty = file("empty", "");
    const std::string large = file("large", std::string(kSector + 1, 'x'));
    expect_refusal({"verify", kQ5, empty}, 2, empty + " has 0 bytes, the region has 4194304");
    expect_refusal(
        {"verify", kQ5, large, "--region", "config"}, 2,
        large + " has 65537 bytes, the region has 65536");
    expect_refusal({"verify", kQ5, path("none")}, 3, path("none") + ": No such file or directory");
}

// --- write-boot ---

TEST_P(EachFamily, WriteBootReplacesTheRomAndSavesTheOldOne) {
    const std::string before = whole(location_);
    const std::size_t region = location_ == kQ3 ? 0x30000 : 0x60000;
    const std::string image = make_image(70001);
    const Json reply =
        json({"write-boot", location_, file("rom", image), "--yes", "--backup", path("backup")});
    const std::string after = whole(location_);
    EXPECT_EQ(after.substr(0, image.size()), image);
    EXPECT_EQ(
        after.substr(image.size(), 2 * kSector - image.size()).find_first_not_of('\xFF'),
        std::string::npos);
    EXPECT_EQ(after.substr(2 * kSector), before.substr(2 * kSector)) << "the rest is as it was";
    EXPECT_EQ(content("backup"), before.substr(0, region));
    EXPECT_EQ(reply.at("region"), "boot");
    EXPECT_EQ(reply.at("dry_run"), false);
    EXPECT_EQ(reply.at("changed"), true);
    EXPECT_EQ(reply.at("verified"), true);
    EXPECT_EQ(
        reply.at("erased"),
        Json({{"numbers", {0, 1}}, {"address", 0}, {"size_bytes", 2 * kSector}}));
    EXPECT_EQ(
        reply.at("backup"), Json(
                                {{"file", path("backup")},
                                 {"address", 0},
                                 {"size_bytes", region},
                                 {"sha256", sha256_of(content("backup"))}}));
}

TEST_P(EachFamily, BackupCanBeWrittenBack) {
    const std::string before = whole(location_);
    ASSERT_EQ(
        run({"write-boot", location_, file("rom", make_image(70001)), "--yes", "--backup",
             path("backup")})
            .exit,
        0);
    const test::Result result =
        run({"write-boot", location_, path("backup"), "--yes", "--no-backup"});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(whole(location_), before);
}

TEST_P(EachFamily, DryRunTellsSectorsAndPagesAndTouchesNothing) {
    const std::string before = whole(location_);
    const std::string rom = file("rom", make_image(70001));
    const Json reply =
        json({"write-boot", location_, rom, "--dry-run", "--backup", path("backup")});
    EXPECT_EQ(reply.at("dry_run"), true);
    EXPECT_EQ(reply.at("changed"), false);
    EXPECT_EQ(reply.at("verified"), false);
    EXPECT_EQ(reply.at("erased").at("numbers"), Json({0, 1}));
    EXPECT_EQ(
        reply.at("written"), Json(
                                 {{{"address", 256}, {"size_bytes", 69888}, {"count", 273}},
                                  {{"address", 0}, {"size_bytes", 256}, {"count", 1}}}));
    EXPECT_EQ(whole(location_), before);
    EXPECT_EQ(hardware(location_).counts().erases, 0U);
    EXPECT_EQ(hardware(location_).counts().programs, 0U);
    EXPECT_EQ(files(), 1U) << "no copy either";
}

TEST_P(EachFamily, FlippedBitIsFoundByReadingBack) {
    hardware(location_).faults({.flipped_bit_at = 2});
    const test::Result result = run(
        {"write-boot", location_, file("rom", make_image(2000)), "--yes", "--backup",
         path("backup")});
    EXPECT_EQ(result.exit, 6);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("kxctl: " + location_ + ": writing the boot image: "));
    EXPECT_THAT(result.err, HasSubstr("; what was there is in " + path("backup") + "\n"));
}

TEST_P(EachFamily, FlippedBitInTheConfigurationIsFoundToo) {
    hardware(location_).faults({.flipped_bit_at = 1});
    const test::Result result = run({"config-default", location_, "--yes", "--no-backup"});
    EXPECT_EQ(result.exit, 6) << result.err;
}

TEST_P(EachFamily, BackupIsWholeBeforeTheFirstErase) {
    const std::string before = whole(location_);
    const std::size_t region = location_ == kQ3 ? 0x30000 : 0x60000;
    const std::string rom = file("rom", make_image(3000));
    const auto start = hardware(location_).counts();
    ASSERT_EQ(run({"write-boot", location_, rom, "--yes", "--backup", path("whole")}).exit, 0);
    const unsigned taken = hardware(location_).counts().transfers - start.transfers;
    unsigned erased = 0;
    unsigned untouched = 0;
    constexpr unsigned kCuts = 24;
    for (unsigned i = 0; i < kCuts; ++i) {
        hardware(location_).write_flash(0, before);
        host_.remove("/var/lib/kxctl");
        const auto erases = hardware(location_).counts().erases;
        hardware(location_).faults({.power_cut_at = 1 + taken / kCuts * i});
        const std::string copy = "copy" + std::to_string(i);
        EXPECT_NE(run({"write-boot", location_, rom, "--yes", "--backup", path(copy)}).exit, 0)
            << i;
        hardware(location_).restore_power();
        if (hardware(location_).counts().erases == erases) {
            ++untouched;
            EXPECT_EQ(whole(location_), before) << i;
        } else {
            ++erased;
            EXPECT_EQ(content(copy), before.substr(0, region)) << i;
        }
    }
    EXPECT_GT(untouched, 0U);
    EXPECT_GT(erased, 0U);
}

TEST_P(EachFamily, CopyThatCannotBeSavedStopsTheChange) {
    const std::string rom = file("rom", make_image(1024));
    expect_refusal(
        {"write-boot", location_, rom, "--yes", "--backup", rom}, 2, rom + ": File exists");
    const std::string before = whole(location_);
    const std::string nowhere = path("missing/backup");
    const test::Result result = run({"write-boot", location_, rom, "--yes", "--backup", nowhere});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(result.err, HasSubstr("kxctl: " + nowhere + ": No such file or directory\n"));
    EXPECT_EQ(hardware(location_).counts().erases, 0U);
    EXPECT_EQ(whole(location_), before);
}

TEST_P(EachFamily, NothingIsChangedUnasked) {
    const std::string rom = file("rom", make_image(1024));
    const std::string end = " asks for a confirmation, but there is no terminal (use --yes)";
    expect_refusal({"write-boot", location_, rom}, 2, "flash write-boot" + end);
    expect_refusal({"erase-boot", location_}, 2, "flash erase-boot" + end);
    expect_refusal({"config-default", location_}, 2, "flash config-default" + end);
    expect_refusal({"config-erase", location_}, 2, "flash config-erase" + end);
    expect_refusal({"config-write", location_, rom}, 2, "flash config-write" + end);
}

TEST_P(EachFamily, ImagesThatAreNoneAreRefused) {
    const std::string small = file("small", "\x55\xAA" + std::string(25, 'x'));
    const std::string large = file("large", make_image(0x80001));
    const std::string other = file("other", "ELF" + make_image(1024));
    expect_refusal(
        {"write-boot", location_, small, "--yes"}, 2,
        small + ": a boot image has at least 28 bytes");
    expect_refusal(
        {"write-boot", location_, large, "--yes"}, 2, large + " is larger than 524288 bytes");
    expect_refusal(
        {"write-boot", location_, other, "--yes"}, 2, other + ": a boot image begins with 55 aa");
    expect_refusal(
        {"write-boot", location_, path("none"), "--yes"}, 3,
        path("none") + ": No such file or directory");
    expect_refusal(
        {"write-boot", location_, directory_.path(), "--yes"}, 2,
        directory_.path().string() + " is not a file of bytes");
    EXPECT_EQ(files(), 3U);
}

TEST_F(Flash, LargestImageOfEachFamily) {
    const std::string fits = file("fits", make_image(0x30000));
    const std::string over = file("over", make_image(0x30001));
    expect_refusal(
        {"write-boot", kQ3, over, "--yes"}, 2,
        over + ": a boot image of Q3 has at most 196608 bytes");
    EXPECT_EQ(run({"write-boot", kQ3, fits, "--yes", "--no-backup"}).exit, 0);
    EXPECT_EQ(hardware(kQ3).flash(0, 0x30000), make_image(0x30000));
    const Json reply =
        json({"write-boot", kQ4, file("most", make_image(0x80000)), "--yes", "--no-backup"});
    EXPECT_EQ(reply.at("also_erased"), Json({"config"}));
    EXPECT_EQ(reply.at("backup"), nullptr);
    EXPECT_EQ(hardware(kQ4).flash(0, 0x80000), make_image(0x80000));
    EXPECT_EQ(files(), 3U);
}

TEST_F(Flash, WriteBootTellsPeopleWhatItDid) {
    const std::string before = whole(kQ5).substr(0, kSector);
    const test::Result result =
        run({"write-boot", kQ5, file("rom", make_image(1024)), "--yes", "--backup", path("b")});
    EXPECT_EQ(
        result.out,
        "Card            03:00.4 (Q5, Q520-CR, serial number PT05160001)\n"
        "Interfaces      -\n"
        "Region          boot\n"
        "Image           x86\n"
        "Erased          sector 0, 0x0-0xffff\n"
        "Written         3 pages, 0x100-0x3ff; then 1 page, 0x0-0xff\n"
        "Copy            " +
            path("b") + "\nSHA-256 before  " + sha256_of(before) + "\nSHA-256 now     " +
            sha256_of(whole(kQ5).substr(0, kSector)) +
            "\n"
            "Read back       as it should be\n");
    EXPECT_THAT(
        result.err, AllOf(
                        StartsWith("Reading boot: 96 of 384 KiB (25%)\n"),
                        HasSubstr("Erasing boot: 64 of 64 KiB (100%)\n"
                                  "Writing boot: 256 of 1024 bytes (25%)\n"),
                        HasSubstr("Verifying: 64 of 64 KiB (100%)\n")));
}

TEST_F(Flash, EndlessEraseIsToldAndNamesTheCopy) {
    hardware(kQ5).faults({.endless_write_at = 1});
    const test::Result result = run({"erase-boot", kQ5, "--yes", "--backup", path("b")});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("kxctl: 03:00.4: erasing the boot option ROM: "));
    EXPECT_THAT(result.err, HasSubstr("; what was there is in " + path("b") + "\n"));
}

// --- erase-boot, config-erase ---

TEST_P(EachFamily, EraseBootErasesItsRegionOnly) {
    const std::string before = whole(location_);
    const std::size_t region = location_ == kQ3 ? 0x30000 : 0x60000;
    const Json reply = json({"erase-boot", location_, "--yes", "--backup", path("b")});
    EXPECT_EQ(whole(location_), std::string(region, '\xFF') + before.substr(region));
    EXPECT_EQ(content("b"), before.substr(0, region));
    EXPECT_EQ(reply.at("written"), Json::array());
    EXPECT_EQ(reply.at("erased").at("numbers").size(), region / kSector);
}

TEST_P(EachFamily, ConfigEraseErasesItsSectorOnly) {
    const std::size_t config = location_ == kQ3 ? 0x30000 : kConfig;
    hardware(location_).write_flash(config, "record");
    std::string wanted = whole(location_);
    wanted.replace(config, kSector, kSector, '\xFF');
    EXPECT_EQ(run({"config-erase", location_, "--yes", "--backup", path("b")}).exit, 0);
    EXPECT_EQ(whole(location_), wanted);
    EXPECT_THAT(content("b"), StartsWith("record"));
    EXPECT_EQ(content("b").size(), kSector);
}

// --- config-show, config-default, config-write ---

TEST_P(EachFamily, ConfigGoesInACircle) {
    EXPECT_EQ(run({"config-default", location_, "--yes", "--no-backup"}).exit, 0);
    const std::string written = whole(location_);
    EXPECT_EQ(run({"config-erase", location_, "--yes", "--backup", path("b")}).exit, 0);
    const test::Result missing = run({"config-show", location_});
    EXPECT_EQ(missing.exit, 3);
    EXPECT_EQ(missing.err, "kxctl: " + location_ + ": there is no valid record\n");
    const test::Result back = run({"config-write", location_, path("b"), "--yes", "--no-backup"});
    EXPECT_EQ(back.exit, 0) << back.err;
    EXPECT_EQ(whole(location_), written);
    EXPECT_EQ(run({"config-show", location_}).exit, 0);
}

TEST_F(Flash, ConfigShowNamesEachField) {
    hardware(kQ5).write_flash(16, std::string("\1\2\3\4", 4));
    ASSERT_EQ(run({"config-default", kQ5, "--yes", "--no-backup"}).exit, 0);
    const Json config = json({"config-show", kQ5}).at("config");
    EXPECT_EQ(config.size(), 37U);
    EXPECT_EQ(config.at("signature"), "CBIO");
    EXPECT_EQ(config.at("bios_version"), "1.2.3.4");
    EXPECT_EQ(config.at("byte10"), 1);
    EXPECT_EQ(config.at("port16"), Json({1, 1, 0, 0})) << "a product of two ports";
    EXPECT_EQ(config.at("bytes64"), std::string(256, '0'));
    EXPECT_EQ(config.at("word202"), 256);
    EXPECT_EQ(config.at("iscsi_port"), 3260);
    EXPECT_EQ(config.at("port240"), Json({0xFFFFFFFF, 0xFFFFFFFF, 0, 0}));
    EXPECT_THAT(config.at("initiator_name").get<std::string>(), StartsWith("iqn."));
    const std::string text = run({"config-show", kQ5}).out;
    EXPECT_THAT(text, HasSubstr("\niscsi_port         208  3260\n"));
    EXPECT_THAT(text, HasSubstr("\nbytes64             64  128 x 00\n"));
}

TEST_F(Flash, ConfigShowOfQ3NamesItsHeader) {
    hardware(kQ3).write_flash(0x30000, std::string("CIB\0\5\xBC\1ab", 9));
    const Json config = json({"config-show", kQ3}).at("config");
    EXPECT_EQ(config.at("signature"), "CIB");
    EXPECT_EQ(config.at("byte4"), 5);
    EXPECT_EQ(config.at("length"), 444);
    EXPECT_THAT(config.at("data").get<std::string>(), StartsWith("6162ff"));
    EXPECT_EQ(config.at("data").get<std::string>().size(), 2U * 437);
}

TEST_F(Flash, ConfigDefaultTakesThePortsThatTheUserSays) {
    const auto ports = [&] { return json({"config-show", kQ5}).at("config").at("port16"); };
    ASSERT_EQ(run({"config-default", kQ5, "--ports", "4", "--yes", "--no-backup"}).exit, 0);
    EXPECT_EQ(ports(), Json({1, 1, 1, 1}));
    ASSERT_EQ(run({"config-default", kQ4, "--yes", "--no-backup"}).exit, 0);
    EXPECT_EQ(json({"config-show", kQ4}).at("config").at("port16"), Json({1, 1, 1, 1}));
}

TEST_F(Flash, ConfigDefaultNeedsAnOptionRom) {
    hardware(kQ5).write_flash(0, std::string(64, '\xFF'));
    expect_refusal(
        {"config-default", kQ5, "--yes"}, 3, "03:00.4: there is no boot option ROM to configure");
}

TEST_F(Flash, ConfigDefaultNeedsAKnownNumberOfPorts) {
    add("Q5", "06:00.4", 0x5499, {});
    expect_refusal(
        {"config-default", "06:00.4", "--yes"}, 2,
        "06:00.4: how many ports device 5499 has is not known; --ports tells");
    EXPECT_EQ(run({"config-default", "06:00.4", "--ports=1", "--yes", "--no-backup"}).exit, 0);
}

TEST_F(Flash, ConfigWriteTakesRecordsOnly) {
    const std::string small = file("small", "CBIO");
    const std::string other = file("other", std::string(1664, 'x'));
    expect_refusal(
        {"config-write", kQ5, small, "--yes"}, 2, small + ": a record of Q5 has 1664 bytes");
    expect_refusal({"config-write", kQ5, other, "--yes"}, 2, other + ": this is no record of Q5");
    expect_refusal({"config-write", kQ3, other, "--yes"}, 2, other + ": this is no record of Q3");
    const std::string record = "CBIO" + std::string(1660, 'r');
    EXPECT_EQ(run({"config-write", kQ5, file("record", record), "--yes", "--no-backup"}).exit, 0);
    EXPECT_EQ(hardware(kQ5).flash(kConfig, 1665), record + '\xFF');
}

TEST_F(Flash, ConfigWriteOfQ3PutsTheHeaderRight) {
    const std::string block = std::string("CIB\0\0\0\0", 7) + std::string(441, 'd');
    EXPECT_EQ(run({"config-write", kQ3, file("block", block), "--yes", "--no-backup"}).exit, 0);
    EXPECT_EQ(
        hardware(kQ3).flash(0x30000, 449),
        std::string("CIB\0\1\xBC\1", 7) + std::string(441, 'd') + '\xFF');
}

// --- a simulated session ---

TEST_F(Flash, SimulatedFlashOutlivesItsSession) {
    const std::string scenario = file(
        "card.toml",
        "[[adapter]]\nchip = \"Q5\"\nlocation = \"03:00.4\"\n"
        "[adapter.flash]\nfile = \"flash.bin\"\n");
    const std::string image = make_image(5000);
    const std::string rom = file("rom", image);
    const auto command = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"--sim", scenario, "flash"});
        return test::run(std::move(words));
    };
    EXPECT_EQ(command({"write-boot", kQ5, rom, "--yes", "--no-backup"}).exit, 0);
    EXPECT_EQ(content("flash.bin").substr(0, image.size()), image);
    EXPECT_EQ(command({"dump", kQ5, path("boot"), "--region", "boot"}).exit, 0);
    EXPECT_EQ(content("boot").substr(0, image.size()), image);
}

// --- large sectors ---

class LargeSectors : public Flash {
protected:
    LargeSectors() {
        kxsim::Adapter adapter{.chip = "Q5", .location = "07:00.4"};
        adapter.device_id = 0x5410;
        adapter.flash.capacity_code = 24;
        adapter.flash.content = {{0, make_image(0x60000, 3)}};
        host_.adapter(adapter);
    }
};

TEST_F(LargeSectors, WhatSharesASectorIsPutBack) {
    const std::string before = whole("07:00.4");
    const Json reply = json({"config-default", "07:00.4", "--yes", "--backup", path("b")});
    EXPECT_EQ(reply.at("also_erased"), Json::array());
    EXPECT_EQ(reply.at("put_back"), Json({"boot"}));
    EXPECT_EQ(reply.at("erased").at("address"), 0x40000);
    EXPECT_EQ(content("b"), before.substr(0x40000, 0x40000));
    const std::string after = whole("07:00.4");
    EXPECT_TRUE(after.substr(0, kConfig) == before.substr(0, kConfig));
    EXPECT_THAT(after.substr(kConfig, 4), "CBIO");
    EXPECT_TRUE(after.substr(kFirmware) == before.substr(kFirmware));
    EXPECT_THAT(
        run({"config-erase", "07:00.4", "--dry-run"}).out,
        HasSubstr("Would put back  part of boot\n"));
}

TEST_F(LargeSectors, EraseBootErasesTheWholeRegion) {
    hardware("07:00.4").write_flash(kConfig, "CBIO");
    hardware("07:00.4").write_flash(kFirmware, "firmware");
    const std::string before = whole("07:00.4");
    EXPECT_EQ(run({"erase-boot", "07:00.4", "--yes", "--no-backup"}).exit, 0);
    EXPECT_TRUE(whole("07:00.4") == std::string(0x60000, '\xFF') + before.substr(0x60000));
}

TEST_F(LargeSectors, ImageMayEndInASectorWithTheConfiguration) {
    hardware("07:00.4").write_flash(kConfig, "CBIO");
    const std::string image = make_image(0x40001);
    const Json reply = json({"write-boot", "07:00.4", file("rom", image), "--yes", "--no-backup"});
    EXPECT_EQ(reply.at("put_back"), Json({"config"}));
    EXPECT_TRUE(hardware("07:00.4").flash(0, image.size()) == image);
    EXPECT_EQ(hardware("07:00.4").flash(kConfig, 4), "CBIO");
}

}  // namespace
