// The offload settings of a card: one row for each control file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <kxsim/host.hpp>
#include <limits>
#include <string>
#include <vector>

#include "support/closed_streams.hpp"
#include "support/output.hpp"
#include "support/shell.hpp"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int64_t kLeast = -2147483648;
constexpr int64_t kMost = 2147483647;

struct Row {
    unsigned bit;
    const char* name;
    std::size_t offset;
    std::size_t width;
    int64_t min;
    int64_t max;
};

// In the order in which they are applied.
constexpr Row kRows[] = {
    {1, "activated", 191, 1, 0, 1},
    {2, "max_host_sndbuf", 69, 8, 0, kMost},
    {3, "tx_hold_thres", 77, 8, 0, kMost},
    {4, "max_wr", 85, 2, 3, kMost},
    {23, "max_wr_credits", 85, 2, 3, kMost},
    {5, "rx_credit_thres", 87, 8, 1, kMost},
    {6, "failover_alg", 95, 1, -1, 3},
    {7, "mss", 96, 4, 1, 1048576},
    {8, "delayed_ack", 100, 1, 0, 3},
    {9, "max_conn", 101, 8, -1, kMost},
    {10, "soft_backlog_limit", 109, 1, 0, 1},
    {11, "ddp", 110, 1, 0, 1},
    {12, "ddp_thres", 119, 8, kLeast, kMost},
    {13, "recvmsg_spin_us", 193, 1, kLeast, kMost},
    {14, "ddp_push_wait", 135, 8, kLeast, kMost},
    {15, "ddp_rcvcoalesce", 143, 8, kLeast, kMost},
    {16, "zcopy_sendmsg_partial_thres", 151, 8, kLeast, kMost},
    {17, "zcopy_sendmsg_partial_copy", 159, 8, kLeast, kMost},
    {18, "zcopy_sendmsg_thres", 167, 8, kLeast, kMost},
    {19, "zcopy_sendmsg_copy", 175, 8, kLeast, kMost},
    {20, "zcopy_sendmsg_ret_pending_dma", 183, 8, kLeast, kMost},
    {21, "kseg_ddp", 111, 8, kLeast, kMost},
    {22, "cop_managed_offloading", 192, 1, 0, 1},
};

int64_t least_of(const Row& row) {
    return row.width == 8 ? INT64_MIN : -(int64_t{1} << (8 * row.width - 1));
}
int64_t most_of(const Row& row) {
    return row.width == 8 ? INT64_MAX : (int64_t{1} << (8 * row.width - 1)) - 1;
}

class OffloadSettings : public testing::Test {
protected:
    OffloadSettings() {
        host_.module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "0"}}});
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
        host_.toe_device({.index = 3, .interfaces = {"eth2"}});
        for (const Row& row : kRows) {
            host_.file(control_file(row.name), "untouched\n");
        }
        start();
    }
    ~OffloadSettings() override { std::memset(errStr, 0, KX_DETAIL_SIZE); }

    static std::string control_file(const std::string& name) {
        return "/proc/sys/toe/toe3_tom/" + name;
    }
    static std::string saved_line(const std::string& name, int64_t value) {
        return "toe.toe3_tom." + name + " = " + std::to_string(value) + "\n";
    }

    void start() {
        std::memset(&params_, 0, sizeof params_);
        std::memset(errStr, 0, KX_DETAIL_SIZE);
        host_.file("/etc/sysctl.conf", "");
    }

    void put(const Row& row, int64_t value) {
        std::memcpy(reinterpret_cast<char*>(&params_) + row.offset, &value, row.width);
        params_.change_mask = params_.change_mask | uint32_t{1} << row.bit;
    }

    uint32_t set() {
        const auto attached = host_.attach();
        std::string location = "03:00.4";
        return SetCardParam(&params_, location.data());
    }

    // max_wr_credits is applied only together with another offload setting; this one has no effect.
    uint32_t set_alone(const Row& row, int64_t value) {
        start();
        put(row, value);
        if (row.bit == 23) {
            params_.change_mask = params_.change_mask | 0x800;  // ddp
        }
        return set();
    }

    [[nodiscard]] std::string written(const char* name) const {
        return host_.read(control_file(name));
    }
    [[nodiscard]] std::string saved() const { return host_.read("/etc/sysctl.conf"); }

    kxsim::Host host_;
    CardParams params_{};
};

TEST_F(OffloadSettings, EachIsWrittenAndSavedAtBothEndsOfItsRange) {
    for (const Row& row : kRows) {
        for (const int64_t value :
             {std::max(row.min, least_of(row)), std::min(row.max, most_of(row))}) {
            EXPECT_EQ(set_alone(row, value), 0U) << row.name << " " << value;
            EXPECT_EQ(written(row.name), std::to_string(value) + "\n") << row.name;
            EXPECT_THAT(saved(), StartsWith(saved_line(row.name, value))) << row.name;
            EXPECT_STREQ(errStr, "") << row.name;
        }
    }
}

TEST_F(OffloadSettings, EachRefusesWhatLiesBeyondItsRange) {
    for (const Row& row : kRows) {
        std::vector<int64_t> wrong;
        if (row.min > least_of(row)) {
            wrong.insert(wrong.end(), {row.min - 1, least_of(row)});
        }
        if (row.max < most_of(row)) {
            wrong.insert(wrong.end(), {row.max + 1, most_of(row)});
        }
        for (const int64_t value : wrong) {
            host_.file(control_file(row.name), "untouched\n");
            EXPECT_EQ(set_alone(row, value), 70U) << row.name << " " << value;
            EXPECT_EQ(written(row.name), "untouched\n") << row.name;
            EXPECT_THAT(saved(), Not(HasSubstr(std::string(".") + row.name + " ")));
            const std::string message =
                "Set " + std::string(row.name) + " for 03:00.4 failed: Invalid set value; ";
            EXPECT_EQ(std::string(GetErrStr(70)), message.substr(0, 63)) << row.name;
        }
    }
}

TEST_F(OffloadSettings, EachReportsAMissingControlFileAndMakesNone) {
    for (const Row& row : kRows) {
        host_.remove(control_file(row.name));
        EXPECT_EQ(set_alone(row, std::max(row.min, least_of(row))), 70U) << row.name;
        const std::string message =
            "Set " + std::string(row.name) + " for 03:00.4 failed: Resource unavailable; ";
        EXPECT_EQ(std::string(GetErrStr(70)), message.substr(0, 63)) << row.name;
        EXPECT_FALSE(host_.exists(control_file(row.name)));
        host_.file(control_file(row.name), "untouched\n");
    }
}

TEST_F(OffloadSettings, EachReportsAWriteThatTheDriverRefuses) {
    for (const Row& row : kRows) {
        host_.fail(
            {.call = "write", .times = 0, .error = EINVAL, .object = control_file(row.name)});
        EXPECT_EQ(
            test::told([&] {
                EXPECT_EQ(set_alone(row, std::max(row.min, least_of(row))), 70U) << row.name;
            }),
            "WRITE ERROR:: Invalid argument\n");
        const std::string message =
            "Set " + std::string(row.name) + " for 03:00.4 failed: Invalid set value; ";
        EXPECT_EQ(std::string(GetErrStr(70)), message.substr(0, 63)) << row.name;
        EXPECT_THAT(saved(), Not(HasSubstr(std::string(".") + row.name + " ")));
        host_.clear_faults();
    }
}

TEST_F(OffloadSettings, AllAreAppliedInTheOrderOfTheTable) {
    for (const Row& row : kRows) {
        put(row, row.bit == 4 || row.bit == 23 ? 5 : 1);
    }
    EXPECT_EQ(+params_.change_mask, 0xfffffeU);
    std::vector<std::string> opened;
    kxsim::Calls calls = host_.count([&] { EXPECT_EQ(set(), 0U); });
    for (const kxsim::LoggedCall& call : calls.log()) {
        if (call.call == "write" && call.object.starts_with("/proc/sys/toe/")) {
            opened.push_back(call.object);
        }
    }
    std::vector<std::string> expected;
    std::string lines;
    for (const Row& row : kRows) {
        expected.push_back(control_file(row.name));
        lines += saved_line(row.name, row.bit == 4 || row.bit == 23 ? 5 : 1);
    }
    EXPECT_EQ(opened, expected);
    EXPECT_EQ(saved(), lines);
}

TEST_F(OffloadSettings, AFailureStopsNoneBehindItAndMessagesAreCutAt63Characters) {
    put(kRows[6], 4);  // failover_alg
    put(kRows[20], kMost + 1);
    put(kRows[7], 1448);  // mss
    EXPECT_EQ(set(), 70U);
    EXPECT_EQ(written("mss"), "1448\n");
    EXPECT_STREQ(
        GetErrStr(70),
        "Set failover_alg for 03:00.4 failed: Invalid set value; "
        "Set zcopy_sendmsg_ret_pending_dma for 03:00.4 failed: Invalid s");
}

TEST_F(OffloadSettings, CreditsAloneGoToTheDriverAndWriteNothing) {
    put(kRows[4], 16);
    EXPECT_EQ(set(), 0U);
    EXPECT_EQ(written("max_wr_credits"), "untouched\n");
    EXPECT_EQ(saved(), "");
}

TEST_F(OffloadSettings, DriverAndOffloadSettingsGoTogether) {
    put(kRows[7], 0);  // mss, out of its range
    params_.change_mask = params_.change_mask | 0x1000000;
    params_.tx_coal = -2;
    EXPECT_EQ(set(), 70U);
    EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "-2\n");
}

// As at start-up: the control files have their defaults, and procps applies the saved lines.
TEST_F(OffloadSettings, ProcpsAppliesEverySavedLine) {
    if (test::shell("command -v sysctl").status != 0) {
        GTEST_SKIP() << "sysctl is not installed";
    }
    for (const Row& row : kRows) {
        put(row, row.bit == 4 || row.bit == 23 ? 5 : 1);
    }
    ASSERT_EQ(set(), 0U);
    for (const Row& row : kRows) {
        host_.file(control_file(row.name), "0\n");
    }
    const auto attached = host_.attach();
    const test::ShellResult result = test::shell("sysctl -p /etc/sysctl.conf 2>&1");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, saved());
    for (const Row& row : kRows) {
        EXPECT_EQ(written(row.name), row.bit == 4 || row.bit == 23 ? "5\n" : "1\n") << row.name;
    }
}

TEST_F(OffloadSettings, SavedLinesAreReplacedAndOthersKept) {
    host_.file(
        "/etc/sysctl.conf",
        "# comment\n  net.a = 1\ntoe.toe3_tom.max_wr=8\ntoe.toe3_tom.max_wr_credits = 8");
    params_.max_wr = 16;
    params_.change_mask = 0x10;
    const auto attached = host_.attach();
    std::string location = "03:00.4";
    EXPECT_EQ(SetCardParam(&params_, location.data()), 0U);
    EXPECT_EQ(
        saved(), "# comment\nnet.a = 1\ntoe.toe3_tom.max_wr = 16\ntoe.toe3_tom.max_wr_credits = 8");
}

TEST_F(OffloadSettings, AValueThatCannotBeSavedIsStillApplied) {
    host_.remove("/etc/sysctl.conf");
    host_.directory("/etc/sysctl.conf");
    put(kRows[7], 1448);
    std::memset(errStr, 0, KX_DETAIL_SIZE);
    EXPECT_EQ(set(), 0U);
    EXPECT_EQ(written("mss"), "1448\n");
}

TEST_F(OffloadSettings, TurningTheEngineOnBringsTheDeviceUpFirst) {
    put(kRows[0], 1);
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(set(), 0U); });
    EXPECT_THAT(calls.requests(), Contains("SIOCDEVPRIVATE eth2"));
    EXPECT_EQ(written("activated"), "1\n");
}

TEST_F(OffloadSettings, TurningItOffOrSettingOthersDoesNot) {
    put(kRows[0], 0);
    EXPECT_EQ(set(), 0U);
    start();
    params_.activated = 1;
    put(kRows[7], 1448);
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(set(), 0U); });
    EXPECT_THAT(calls.requests(), Not(Contains("SIOCDEVPRIVATE eth2")));
    EXPECT_EQ(written("activated"), "0\n") << "by the first call";
}

TEST_F(OffloadSettings, AFailedActivationStillAppliesTheOthers) {
    put(kRows[0], 2);
    put(kRows[7], 1448);
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(set(), 70U); });
    EXPECT_EQ(written("mss"), "1448\n");
    EXPECT_STREQ(GetErrStr(70), "Set activated for 03:00.4 failed: Invalid set value; ");
    EXPECT_THAT(calls.requests(), Not(Contains("SIOCDEVPRIVATE eth2")));
}

constexpr char kNoDevice[] = "Set TOE Parameter(s) failed for 03:00.4: Resource not available";

// The first device belongs to another card.
TEST_F(OffloadSettings, APortThatIsNotListedWritesNothingOfAnyDevice) {
    for (const char* list : {"toe0            eth9\n", ""}) {
        start();
        host_.file("/proc/net/offload/devices", list);
        for (const Row& row : kRows) {
            host_.file("/proc/sys/toe/toe0_tom/" + std::string(row.name), "of another card\n");
            put(row, row.bit == 4 || row.bit == 23 ? 5 : 1);
        }
        params_.change_mask = params_.change_mask | 0x1000000;
        params_.tx_coal = 5;
        const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(set(), 70U); });
        EXPECT_STREQ(GetErrStr(70), kNoDevice);
        for (const Row& row : kRows) {
            EXPECT_EQ(
                host_.read("/proc/sys/toe/toe0_tom/" + std::string(row.name)), "of another card\n");
            EXPECT_EQ(written(row.name), "untouched\n") << row.name;
        }
        EXPECT_EQ(saved(), "");
        EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "0\n") << "not reached";
        EXPECT_THAT(calls.requests(), Contains("SIOCDEVPRIVATE eth2"))
            << "it may have been listed then";
    }
}

TEST_F(OffloadSettings, AListThatCannotBeReadWritesNothingOfAnyDevice) {
    host_.remove("/proc/net/offload/devices");
    host_.file("/proc/sys/toe/toe0_tom/activated", "1\n");
    put(kRows[0], 0);
    EXPECT_EQ(set(), 70U);
    EXPECT_STREQ(GetErrStr(70), kNoDevice);
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/activated"), "1\n");
    EXPECT_EQ(saved(), "");
}

TEST_F(OffloadSettings, WithoutControlFilesOnlyThatIsTold) {
    host_.remove("/proc/sys/toe/toe3_tom");
    put(kRows[0], 1);
    put(kRows[7], 1448);
    params_.change_mask = params_.change_mask | 0x1000000;
    params_.tx_coal = 5;
    EXPECT_EQ(set(), 70U);
    EXPECT_STREQ(GetErrStr(70), kNoDevice);
    EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "0\n") << "not reached";
    EXPECT_FALSE(host_.exists("/proc/sys/toe/toe3_tom"));
}

TEST_F(OffloadSettings, ACardWithoutOffloadIsToldSoBeforeAnythingIsTouched) {
    const auto attached = host_.attach();
    CardInfo card{};
    std::strcpy(card.pci_bus_location, "05:00.0");
    std::strcpy(card.offload_device, "nic_dev");
    card.params.tx_coal = 5;
    card.params.change_mask = 0x1000002;
    EXPECT_EQ(setCardParams(&card), 70U);
    EXPECT_STREQ(
        GetErrStr(70), "Set TOE Parameter(s) failed: Operation not supported: NIC-Only device");
    EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "0\n");
    card.params.change_mask = 0x1000000;
    EXPECT_EQ(setCardParams(&card), 0U) << "the driver's parameter is no offload setting";
    EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "5\n");
}

TEST_F(OffloadSettings, ACardWithoutAPortWritesNothingOfAnyDevice) {
    host_.file("/proc/sys/toe/toe0_tom/activated", "0\n");
    host_.file("/proc/sys/toe/toe0_tom/mss", "1\n");
    const auto attached = host_.attach();
    CardInfo card{};
    std::strcpy(card.pci_bus_location, "03:00.4");
    std::strcpy(card.offload_device, "toe0");
    card.params.activated = 1;
    card.params.mss = 1448;
    card.params.change_mask = 0x82;
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(setCardParams(&card), 70U); });
    EXPECT_STREQ(GetErrStr(70), kNoDevice);
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/activated"), "0\n");
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/mss"), "1\n");
    EXPECT_EQ(saved(), "");
    EXPECT_THAT(calls.requests(), testing::IsEmpty());
}

TEST_F(OffloadSettings, ALocationThatFillsItsFieldNamesTheCardInMessages) {
    const auto attached = host_.attach();
    PortInfo port{};
    std::strcpy(port.interface_name, "eth2");
    CardInfo card{};
    std::memset(card.pci_bus_location, 'L', sizeof card.pci_bus_location);
    std::strcpy(card.offload_device, "toe3");
    card.ports = &port;
    card.params.activated = 2;
    card.params.change_mask = 2;
    EXPECT_EQ(setCardParams(&card), 70U);
    EXPECT_STREQ(GetErrStr(70), "Set activated for LLLLLLLLLLLLLLLL failed: Invalid set value; ");
}

TEST_F(OffloadSettings, MessagesNameTheTextAtTheStartOfTheCardWhereverItEnds) {
    const auto attached = host_.attach();
    CardInfo card{};
    std::strcpy(card.offload_device, "toe0");
    card.params.change_mask = 4;
    for (const std::size_t length : {15U, 16U, 20U, 31U, 40U}) {
        std::memset(&card, 0, offsetof(CardInfo, offload_device));
        std::memset(&card, 'L', length);
        EXPECT_EQ(setCardParams(&card), 70U);
        const std::string name(std::min<std::size_t>(length, 31), 'L');
        EXPECT_EQ(
            std::string(errStr),
            "Set TOE Parameter(s) failed for " + name + ": Resource not available");
    }
}

TEST_F(OffloadSettings, ASingleSettingNamesTheLastCardAndAppends) {
    put(kRows[7], 0);
    set();
    const auto attached = host_.attach();
    std::strcpy(errStr, "before; ");
    char name[] = "mss";
    EXPECT_EQ(setTOEParam(name, 3, 7, 8, 9), 70U);
    EXPECT_STREQ(errStr, "before; Set mss for 03:00.4 failed: Invalid set value; ");
    EXPECT_EQ(setTOEParam(name, 3, 8, 8, 9), 0U);
    EXPECT_EQ(written("mss"), "8\n");
    EXPECT_EQ(setTOEParam(name, 9, 8, 8, 9), 70U);
    EXPECT_NE(setTOEParam(nullptr, 3, 8, 8, 9), 0U);
    EXPECT_NE(setTOEParams(nullptr, 0xffffffff, 3), 0U);
}

TEST_F(OffloadSettings, TheWalkLeavesTheActivationOut) {
    put(kRows[0], 1);
    put(kRows[7], 1448);
    const auto attached = host_.attach();
    EXPECT_EQ(setTOEParams(&params_, 0xffffffff & ~0x800000U & 0x82U, 3), 0U);
    EXPECT_EQ(written("activated"), "untouched\n");
    EXPECT_EQ(written("mss"), "1448\n");
}

// One descriptor is closed, so the control file gets its number.
uint32_t set_without(int descriptor) {
    const int kept = dup(descriptor);
    close(descriptor);
    char name[] = "mss";
    const uint32_t status = setTOEParam(name, 3, 8, 8, 9);
    if (kept >= 0) {
        dup2(kept, descriptor);
        close(kept);
    }
    return status;
}

TEST_F(OffloadSettings, DescriptorZeroCountsAsAFailure) {
    const auto attached = host_.attach();
    EXPECT_EQ(set_without(STDIN_FILENO), 70U);
    EXPECT_THAT(std::string(errStr), HasSubstr("Resource unavailable"));
    EXPECT_EQ(written("mss"), "untouched\n");
}

TEST_F(OffloadSettings, DescriptorOneIsAsGoodAsAnother) {
    const auto attached = host_.attach();
    EXPECT_EQ(set_without(STDOUT_FILENO), 0U);
    EXPECT_EQ(written("mss"), "8\n");
}

TEST_F(OffloadSettings, MessageOfARefusedValueDoesNotGoIntoTheControlFile) {
    const auto attached = host_.attach();
    host_.fail(
        {.call = "write", .times = 0, .error = EINVAL, .object = "/proc/sys/toe/toe3_tom/mss"});
    for (const unsigned closed : test::kClosedStreams) {
        const std::string answer = test::without_streams(closed, [] {
            char name[] = "mss";
            return std::to_string(setTOEParam(name, 3, 8, 8, 9));
        });
        EXPECT_EQ(answer, "70");
        EXPECT_EQ(written("mss"), "untouched\n") << test::streams_text(closed);
    }
}

}  // namespace
