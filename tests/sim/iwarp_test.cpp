// iWARP and driver-module parameters: commands run, files written and read, messages logged.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/host.h>
#include <kxlinhw/kxlinhw.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <kxsim/host.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "support/iwarp_files.hpp"
#include "support/output.hpp"

namespace {

std::vector<std::string> commands;  // that were run through the shell
bool no_pipes = false;
std::vector<std::tuple<int, int, std::string>> logged;  // module, type, message
std::vector<std::string> formats;                       // of those messages

}  // namespace

// The agent's logger.
void KxLogger::KestrixLogMsg(ModName module, LogType type, const char* format, ...) {
    char message[512];
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(message, sizeof message, format, values);
    va_end(values);
    logged.emplace_back(module, type, message);
    formats.emplace_back(format);
}

ModName KxLogger::MapSVCToModName(int service) { return static_cast<ModName>(service + 1000); }

extern "C" KX_EXPORT FILE* popen(const char* command, const char* mode) {
    static const auto next =
        reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "popen"));
    commands.emplace_back(command);
    if (no_pipes) {
        return nullptr;
    }
    return next(command, mode);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Row {
    unsigned bit;
    const char* name;
    std::size_t offset;
    bool set_zfab3;
    bool set_zfab4;
    bool read_zfab4;  // iw_zfab3: the same as set_zfab3
};

// In the order of setting.
constexpr Row kRows[] = {
    {0, "allow_nonroot_rawqps", 284, false, true, true},
    {2, "z4iw_debug", 240, false, true, true},
    {1, "z4iw_max_read_depth", 224, false, true, true},
    {4, "crc_enabled", 264, true, true, true},
    {3, "cong_flavor", 280, true, false, false},
    {5, "dack_mode", 220, false, true, true},
    {6, "db_delay_usecs", 204, false, true, true},
    {7, "db_fc_drain_thresh", 288, false, true, true},
    {8, "db_fc_resume_delay", 292, false, true, true},
    {9, "db_fc_resume_size", 296, false, true, true},
    {10, "enable_ecn", 300, false, true, true},
    {12, "enable_tcp_timestamps", 228, false, true, true},
    {11, "enable_tcp_sack", 232, false, true, true},
    {13, "enable_tcp_window_scaling", 236, false, true, true},
    {14, "ep_timeout_secs", 252, true, true, true},
    {15, "fastreg_support", 216, false, true, true},
    {16, "inline_threshold", 304, false, true, true},
    {17, "map_udb_as_wc", 308, false, true, true},
    {18, "markers_enabled", 260, true, true, false},
    {20, "mpa_rev", 256, true, true, true},
    {19, "max_fr_immd", 312, false, true, true},
    {21, "nocong", 276, true, true, true},
    {22, "ocqp_support", 208, false, true, true},
    {24, "peer2peer", 248, true, true, true},
    {23, "p2p_type", 244, false, true, true},
    {26, "relaxed_ird_negotiation", 316, false, true, true},
    {27, "relaxed_ordering", 320, false, true, true},
    {25, "rcv_win", 268, true, true, true},
    {28, "snd_win", 272, true, true, true},
    {29, "q5_en_wc", 324, false, true, true},
    {30, "use_dsgl", 328, false, true, true},
};

constexpr const char* kModules[] = {"iw_zfab3", "iw_zfab4"};

bool settable(const Row& row, std::string_view module) {
    return module == "iw_zfab3" ? row.set_zfab3 : row.set_zfab4;
}
bool readable(const Row& row, std::string_view module) {
    return module == "iw_zfab3" ? row.set_zfab3 : row.read_zfab4;
}
std::string file_of(std::string_view module, std::string_view name) {
    return "/sys/module/" + std::string(module) + "/parameters/" + std::string(name);
}

class Iwarp : public testing::Test {
protected:
    Iwarp() {
        host_.module({.name = "zfab4", .loaded = true});
        for (const char* module : kModules) {
            host_.module({.name = module, .loaded = true});
            for (const Row& row : kRows) {
                host_.file(file_of(module, row.name), "untouched\n");
            }
        }
        start("iw_zfab4");
    }

    void start(std::string_view module) {
        std::memset(&record_, 0xEE, sizeof record_);
        std::memset(record_.module, 0, sizeof record_.module);
        std::memcpy(record_.module, module.data(), module.size());
        record_.change_mask = 0;
        commands.clear();
        logged.clear();
        formats.clear();
    }

    void put(const Row& row, int32_t value) {
        std::memcpy(reinterpret_cast<char*>(&record_) + row.offset, &value, sizeof value);
        record_.change_mask = record_.change_mask | uint64_t{1} << row.bit;
    }
    int32_t value_of(const Row& row) {
        int32_t value = 0;
        std::memcpy(&value, reinterpret_cast<const char*>(&record_) + row.offset, sizeof value);
        return value;
    }

    uint32_t set() {
        const auto attached = host_.attach();
        uint32_t status = 0;
        printed_ = test::printed([&] { status = SetIwarpProps(&record_); });
        return status;
    }
    uint32_t get() {
        const auto attached = host_.attach();
        size_ = 77;
        uint32_t status = 0;
        complained_ = test::told(
            [&] { printed_ = test::printed([&] { status = GetIwarpProps(&record_, &size_); }); });
        return status;
    }

    [[nodiscard]] std::string file(std::string_view module, const char* name) const {
        return host_.read(file_of(module, name));
    }

    kxsim::Host host_;
    IwarpProps record_{};
    uint32_t size_ = 0;
    std::string printed_;
    std::string complained_;
};

TEST_F(Iwarp, EachIsWrittenByItsOwnCommandInTheModulesThatHaveIt) {
    for (const char* module : kModules) {
        for (const Row& row : kRows) {
            if (!settable(row, module)) {
                continue;
            }
            start(module);
            const int32_t value = static_cast<int32_t>(1000 + row.bit);
            put(row, value);
            EXPECT_EQ(set(), 0U) << module << " " << row.name;
            EXPECT_THAT(
                commands,
                ElementsAre("echo " + std::to_string(value) + " > " + file_of(module, row.name)));
            EXPECT_EQ(file(module, row.name), std::to_string(value) + "\n") << row.name;
            EXPECT_EQ(printed_, "SetIwarpProps:: Module: " + std::string(module) + "\n");
            EXPECT_THAT(logged, IsEmpty());
        }
    }
}

TEST_F(Iwarp, EachIsRefusedForTheModuleThatLacksItBeforeAnythingIsWritten) {
    for (const char* module : kModules) {
        for (const Row& row : kRows) {
            if (settable(row, module)) {
                continue;
            }
            start(module);
            put(kRows[3], 1);  // crc_enabled, which both have
            put(row, 1);
            EXPECT_EQ(set(), 317U) << module << " " << row.name;
            EXPECT_THAT(commands, IsEmpty());
            EXPECT_EQ(file(module, "crc_enabled"), "untouched\n");
            EXPECT_THAT(
                logged, ElementsAre(std::tuple(
                            1010, 2, "Invalid " + std::string(module) + " driver parameters")));
            EXPECT_THAT(
                formats, ElementsAre("Invalid " + std::string(module) + " driver parameters"))
                << "an agent may know the message by its format";
        }
    }
}

TEST_F(Iwarp, AllAreWrittenInTheOrderOfTheTable) {
    for (const char* module : kModules) {
        start(module);
        std::vector<std::string> expected;
        for (const Row& row : kRows) {
            if (settable(row, module)) {
                put(row, 7);
                expected.push_back("echo 7 > " + file_of(module, row.name));
            }
        }
        record_.change_mask =
            record_.change_mask | ~uint64_t{0x7fffffff};  // bits without a parameter
        EXPECT_EQ(set(), 0U);
        EXPECT_EQ(commands, expected) << module;
    }
}

TEST_F(Iwarp, ValuesAreSigned) {
    for (const int32_t value : {-1, INT32_MIN, INT32_MAX, 0}) {
        start("iw_zfab4");
        put(kRows[28], value);  // snd_win
        EXPECT_EQ(set(), 0U);
        EXPECT_EQ(file("iw_zfab4", "snd_win"), std::to_string(value) + "\n");
    }
}

TEST_F(Iwarp, AMaskOfNothingWritesNothing) {
    EXPECT_EQ(set(), 0U);
    EXPECT_THAT(commands, IsEmpty());
    const IwarpProps before = record_;
    EXPECT_EQ(set(), 0U);
    EXPECT_EQ(std::memcmp(&before, &record_, sizeof record_), 0) << "the record is not changed";
}

TEST_F(Iwarp, ARefusedWriteGoesUnnoticed) {
    host_.remove(file_of("iw_zfab4", "snd_win"));
    put(kRows[28], 1);
    test::told([&] { EXPECT_EQ(set(), 0U); });
    EXPECT_THAT(logged, IsEmpty());
}

TEST_F(Iwarp, AShellThatCannotBeStartedGoesUnnoticedToo) {
    no_pipes = true;
    EXPECT_EQ(executeCommand("true"), -1);
    put(kRows[28], 1);
    EXPECT_EQ(set(), 0U);
    no_pipes = false;
    EXPECT_EQ(executeCommand("true"), 0);
}

TEST_F(Iwarp, AModuleThatIsNotLoadedIsToldSoWhateverItsName) {
    host_.file("/proc/modules", "zfab4 1 0 - Live 0\n");
    for (const char* module : {"iw_zfab3", "iw_zfab4", "anything"}) {
        start(module);
        put(kRows[3], 1);
        const auto message =
            std::tuple(1010, 2, "Module " + std::string(module) + " is not loaded");
        EXPECT_EQ(set(), 62U) << module;
        EXPECT_EQ(get(), 62U) << module;
        EXPECT_THAT(logged, ElementsAre(message, message));
        EXPECT_EQ(size_, 0U);
    }
    EXPECT_THAT(commands, IsEmpty());
}

TEST_F(Iwarp, ALoadedModuleOfAnotherNameIsUnsupported) {
    for (const char* module : {"zfab4", "iw_zfab", "", "iw_zfab"}) {
        start(module);
        put(kRows[3], 1);
        const auto message = std::tuple(1010, 2, "Unsupported Driver: " + std::string(module));
        EXPECT_EQ(set(), 301U) << module;
        EXPECT_EQ(printed_, "SetIwarpProps:: Module: " + std::string(module) + "\n");
        EXPECT_EQ(get(), 301U) << module;
        EXPECT_EQ(printed_, "GetIwarpProps:: Module: " + std::string(module) + "\n");
        EXPECT_THAT(logged, ElementsAre(message, message));
        EXPECT_EQ(size_, 0U);
    }
}

TEST_F(Iwarp, AnUnreadableModuleListCountsAsLoaded) {
    host_.file("/proc/modules", "", 0);
    put(kRows[3], 1);
    EXPECT_EQ(set(), 0U);
    EXPECT_EQ(file("iw_zfab4", "crc_enabled"), "1\n");
}

TEST_F(Iwarp, AModuleNameThatFillsItsFieldIsReadNoFurther) {
    std::memset(record_.module, 'm', sizeof record_.module);
    record_.change_mask = 0x6161616161616161;  // letters, if it were read as text
    EXPECT_EQ(set(), 62U);
    EXPECT_EQ(printed_, "SetIwarpProps:: Module: " + std::string(128, 'm') + "\n");
}

TEST_F(Iwarp, ReadingFillsWhatAModuleHasAndLeavesTheRest) {
    for (const char* module : kModules) {
        for (const Row& row : kRows) {
            host_.file(file_of(module, row.name), std::to_string(2000 + row.bit) + "\n");
        }
        start(module);
        const IwarpProps before = record_;
        EXPECT_EQ(get(), 0U);
        EXPECT_EQ(size_, 332U);
        EXPECT_EQ(printed_, "GetIwarpProps:: Module: " + std::string(module) + "\n");
        for (const Row& row : kRows) {
            const auto expected =
                static_cast<int32_t>(readable(row, module) ? 2000 + row.bit : 0xEEEEEEEE);
            EXPECT_EQ(value_of(row), expected) << module << " " << row.name;
        }
        EXPECT_EQ(std::memcmp(&before, &record_, 204), 0);
        EXPECT_EQ(std::memcmp(before.reserved212, record_.reserved212, 4), 0);
    }
}

TEST_F(Iwarp, FilesAreReadInTheirOrder) {
    const std::vector<std::vector<std::string>> orders = {
        test::kZfab3IwarpFiles, test::kZfab4IwarpFiles};
    for (std::size_t k = 0; k < 2; ++k) {
        start(kModules[k]);
        std::vector<std::string> expected;
        for (const std::string& name : orders[k]) {
            expected.push_back(file_of(kModules[k], name));
        }
        const kxsim::Calls calls = host_.count([&] { get(); });
        std::vector<std::string> opened;
        for (const kxsim::LoggedCall& call : calls.log()) {
            if (call.object.starts_with("/sys/module/") && call.call == "fopen") {
                opened.push_back(call.object);
            }
        }
        EXPECT_EQ(opened, expected) << kModules[k];
    }
}

TEST_F(Iwarp, AMissingFileReadsZeroAndIsToldThreeTimes) {
    const std::string path = file_of("iw_zfab3", "mpa_rev");
    host_.remove(path);
    start("iw_zfab3");
    EXPECT_EQ(get(), 0U);
    EXPECT_EQ(value_of(kRows[19]), 0);
    EXPECT_EQ(size_, 332U);
    EXPECT_EQ(printed_, "GetIwarpProps:: Module: iw_zfab3\nError: File not found\n");
    EXPECT_EQ(complained_, "error: No such file or directory\n");
    EXPECT_THAT(logged, ElementsAre(std::tuple(1004, 2, "File " + path + " not Found")));
}

TEST_F(Iwarp, NullArgumentsAreRefused) {
    EXPECT_NE(SetIwarpProps(nullptr), 0U);
    EXPECT_NE(GetIwarpProps(nullptr, &size_), 0U);
    EXPECT_NE(GetIwarpProps(&record_, nullptr), 0U);
    EXPECT_NE(setDriverParams(nullptr, 0xffffffff, "zfab4"), 0U);
    EXPECT_NE(getDriverParams(nullptr, "zfab4"), 0U);
    EXPECT_EQ(executeCommand(nullptr), -1);
    EXPECT_EQ(read_from_file(nullptr, &size_), -1);
    EXPECT_EQ(read_from_file("/dev/null", nullptr), -1);
}

TEST_F(Iwarp, ARecordMayStandAtAnyAddress) {
    std::vector<char> bytes(sizeof record_ + 1);
    put(kRows[28], 5);
    std::memcpy(bytes.data() + 1, &record_, sizeof record_);
    const auto attached = host_.attach();
    test::printed([&] {
        EXPECT_EQ(SetIwarpProps(bytes.data() + 1), 0U);
        EXPECT_EQ(GetIwarpProps(bytes.data() + 1, &size_), 0U);
    });
    EXPECT_EQ(file("iw_zfab4", "snd_win"), "5\n");
}

}  // namespace
