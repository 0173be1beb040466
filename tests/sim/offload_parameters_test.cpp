// The offload engine's device index and parameters, from the files of the simulated host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/offload.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace {

constexpr char kDevices[] = "/proc/net/offload/devices";

// A parameter's control file and its field in the block.
struct Parameter {
    const char* name;
    std::size_t offset;
    std::size_t width;
};

// In the order of reading.
constexpr Parameter kParameters[] = {
    {"max_host_sndbuf", 69, 8},
    {"tx_hold_thres", 77, 8},
    {"max_wr", 85, 2},
    {"rx_credit_thres", 87, 8},
    {"failover_alg", 95, 1},
    {"mss", 96, 4},
    {"delayed_ack", 100, 1},
    {"max_conn", 101, 8},
    {"soft_backlog_limit", 109, 1},
    {"ddp", 110, 1},
    {"kseg_ddp", 111, 8},
    {"ddp_thres", 119, 8},
    {"ddp_push_wait", 135, 8},
    {"ddp_rcvcoalesce", 143, 8},
    {"zcopy_sendmsg_partial_thres", 151, 8},
    {"zcopy_sendmsg_partial_copy", 159, 8},
    {"zcopy_sendmsg_thres", 167, 8},
    {"zcopy_sendmsg_copy", 175, 8},
    {"zcopy_sendmsg_ret_pending_dma", 183, 8},
    {"activated", 191, 1},
    {"recvmsg_spin_us", 193, 1},
    {"cop_managed_offloading", 192, 1},
};

using Block = std::array<unsigned char, sizeof(CardParams)>;

class OffloadParameters : public testing::Test {
protected:
    OffloadParameters() {
        std::memset(&card_.params, 0xEE, sizeof card_.params);
        std::strcpy(port_.interface_name, "eth2");
        attached_.emplace(host_.attach());
    }

    void give_port() { card_.ports = &port_; }

    static std::string path(const std::string& name, int device = 0) {
        return "/proc/sys/toe/toe" + std::to_string(device) + "_tom/" + name;
    }

    [[nodiscard]] Block block() const {
        Block bytes;
        std::memcpy(bytes.data(), &card_.params, bytes.size());
        return bytes;
    }

    [[nodiscard]] int64_t field(const Parameter& parameter) const {
        const Block bytes = block();
        uint64_t raw = 0;
        std::memcpy(&raw, bytes.data() + parameter.offset, parameter.width);
        const auto unused = static_cast<int>(64 - 8 * parameter.width);
        return static_cast<int64_t>(raw << unused) >> unused;
    }

    [[nodiscard]] int64_t field(const std::string& name) const {
        for (const Parameter& parameter : kParameters) {
            if (name == parameter.name) {
                return field(parameter);
            }
        }
        ADD_FAILURE() << name;
        return 0;
    }

    // The value of the field after a control file with this content was read.
    int64_t read(const std::string& name, const std::string& content) {
        host_.file(path(name), content);
        EXPECT_EQ(getTOEparams(&card_), 0U);
        return field(name);
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
    PortInfo port_{};
    CardInfo card_{};
};

TEST_F(OffloadParameters, DeviceIndexStandsAtTheStartOfTheInterfacesLine) {
    host_.file(
        kDevices, "Device           Interfaces\ntoe0              eth0\ntoe12   eth5 eth6\n");
    int index = -7;
    EXPECT_EQ(getTOEDeviceIndex("eth6", &index), 0U);
    EXPECT_EQ(index, 12);
    EXPECT_EQ(getTOEDeviceIndex("eth0", &index), 0U);
    EXPECT_EQ(index, 0);
}

TEST_F(OffloadParameters, FirstLineOfTheDeviceListCountsToo) {
    host_.file(kDevices, "toe3 eth2\ntoe4 eth2\n");
    int index = -7;
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 0U);
    EXPECT_EQ(index, 3);
}

TEST_F(OffloadParameters, InterfaceIsFoundInsideOtherNames) {
    host_.file(kDevices, "toe1 veth2\ntoe2 eth2\n");
    int index = -7;
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 0U);
    EXPECT_EQ(index, 1);
}

TEST_F(OffloadParameters, LineWithoutADeviceAtItsStartGivesIndex0) {
    for (const char* const line : {" toe5 eth2\n", "dev toe5 eth2\n", "eth2\n", "toe eth2\n"}) {
        host_.file(kDevices, line);
        int index = -7;
        EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 0U) << line;
        EXPECT_EQ(index, 0) << line;
    }
}

TEST_F(OffloadParameters, InterfaceThatIsNotListedGives71AndLeavesTheIndex) {
    host_.file(kDevices, "Device           Interfaces\ntoe0              eth0\n");
    int index = -7;
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 71U);
    host_.file(kDevices, "");
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 71U);
    EXPECT_EQ(index, -7);
}

TEST_F(OffloadParameters, DeviceListThatIsMissingOrUnreadableGives1) {
    int index = -7;
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 1U);
    host_.file(kDevices, "toe0 eth2\n", 0);
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 1U);
    EXPECT_EQ(index, -7);
}

TEST_F(OffloadParameters, LinesOfTheDeviceListAreReadInPiecesOf255Characters) {
    int index = -7;
    host_.file(kDevices, std::string(253, 'x') + "eth2\n");  // the name is split between two reads
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 71U);
    host_.file(kDevices, std::string(255, 'x') + "toe6 eth2\n");
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 0U);
    EXPECT_EQ(index, 6);
}

TEST_F(OffloadParameters, LineOfTheDeviceListEndsAtANul) {
    int index = -7;
    host_.file(kDevices, std::string("toe1 \0eth2\ntoe2 eth2\n", 21));
    EXPECT_EQ(getTOEDeviceIndex("eth2", &index), 0U);
    EXPECT_EQ(index, 2);
}

TEST_F(OffloadParameters, EachIsReadIntoItsField) {
    give_port();
    std::map<std::string, std::string> values;
    Block expected = block();
    int64_t value = -100;
    for (const Parameter& parameter : kParameters) {
        values[parameter.name] = std::to_string(value);
        std::memcpy(expected.data() + parameter.offset, &value, parameter.width);
        value += 9;
    }
    host_.toe_device({.index = 2, .interfaces = {"eth2"}, .parameters = values});
    EXPECT_EQ(getTOEparams(&card_), 0U);
    EXPECT_EQ(block(), expected);
}

TEST_F(OffloadParameters, AreReadOnceEachInTheDriversOrder) {
    give_port();
    host_.toe_device({.index = 2, .interfaces = {"eth2"}});
    const kxsim::Calls calls = host_.count([&] { getTOEparams(&card_); });
    std::vector<std::string> opened;
    for (const kxsim::LoggedCall& call : calls.log()) {
        if (call.call == "open" && call.object.starts_with("/proc/sys/toe/")) {
            opened.push_back(call.object);
        }
    }
    std::vector<std::string> expected;
    for (const Parameter& parameter : kParameters) {
        expected.push_back(path(parameter.name, 2));
    }
    EXPECT_EQ(opened, expected);
    EXPECT_EQ(calls.on("open", kDevices), 1U);
}

TEST_F(OffloadParameters, FileThatIsMissingOrUnreadableLeavesItsFieldAlone) {
    for (const Parameter& missing : kParameters) {
        SCOPED_TRACE(missing.name);
        host_.toe_device({.index = 0, .interfaces = {"eth2"}});
        const std::string file = path(missing.name);
        for (const bool unreadable : {false, true}) {
            host_.remove(file);
            if (unreadable) {
                host_.file(file, "1\n", 0);
            }
            std::memset(&card_.params, 0xEE, sizeof card_.params);
            EXPECT_EQ(getTOEparams(&card_), 0U);
            for (const Parameter& each : kParameters) {
                const Block bytes = block();
                const bool untouched = std::all_of(
                    bytes.begin() + static_cast<std::ptrdiff_t>(each.offset),
                    bytes.begin() + static_cast<std::ptrdiff_t>(each.offset + each.width),
                    [](unsigned char byte) { return byte == 0xEE; });
                EXPECT_EQ(untouched, each.name == missing.name) << each.name;
            }
        }
        host_.remove("/proc/sys/toe");
        host_.remove(kDevices);
    }
}

TEST_F(OffloadParameters, NarrowFieldsTakeTheLowBytes) {
    EXPECT_EQ(read("max_wr", "70000\n"), 4464);
    EXPECT_EQ(read("activated", "257\n"), 1);
    EXPECT_EQ(read("recvmsg_spin_us", "200\n"), -56);
    EXPECT_EQ(read("mss", "2147483647\n"), 2147483647);
}

TEST_F(OffloadParameters, WideFieldsTakeTheSignedInteger) {
    EXPECT_EQ(read("max_conn", "-1\n"), -1);
    EXPECT_EQ(read("ddp_thres", "-2147483648\n"), -2147483648);
    EXPECT_EQ(read("ddp_thres", "2147483647\n"), 2147483647);
    EXPECT_EQ(read("ddp_thres", "4294967297\n"), 1);
}

TEST_F(OffloadParameters, TextThatIsNoNumberReadsZero) {
    EXPECT_EQ(read("mss", "many\n"), 0);
    EXPECT_EQ(read("mss", ""), 0);
    EXPECT_EQ(read("mss", "  12 13\n"), 12);
    EXPECT_EQ(read("mss", std::string("1\0002", 3)), 1);
}

TEST_F(OffloadParameters, SixteenCharactersOfAFileCount) {
    EXPECT_EQ(read("mss", "0000000000001234567\n"), 1234);
    host_.file(path("delayed_ack"), "");  // read after mss, and must not keep its digits
    EXPECT_EQ(read("delayed_ack", ""), 0);
}

TEST_F(OffloadParameters, CardWithoutAPortIsServedByDevice0) {
    host_.file(path("mss"), "1500\n");
    EXPECT_EQ(getTOEparams(&card_), 0U);
    EXPECT_EQ(field("mss"), 1500);
}

TEST_F(OffloadParameters, InterfaceThatIsNotListedLeavesTheBlockAsItWas) {
    give_port();
    host_.toe_device({.index = 0, .interfaces = {"eth7"}});
    const Block before = block();
    EXPECT_EQ(getTOEparams(&card_), 71U);
    host_.remove(kDevices);
    EXPECT_EQ(getTOEparams(&card_), 1U);
    EXPECT_EQ(block(), before);
}

TEST_F(OffloadParameters, FirstPortDecides) {
    PortInfo second{};
    std::strcpy(second.interface_name, "eth3");
    port_.next = &second;
    give_port();
    host_.toe_device({.index = 1, .interfaces = {"eth2"}, .parameters = {{"mss", "100"}}});
    host_.toe_device({.index = 2, .interfaces = {"eth3"}, .parameters = {{"mss", "200"}}});
    EXPECT_EQ(getTOEparams(&card_), 0U);
    EXPECT_EQ(field("mss"), 100);
}

TEST_F(OffloadParameters, MissingDirectoryZeroesTheBlockAndMarksIt) {
    give_port();
    host_.toe_device({.index = 4, .interfaces = {"eth2"}, .control_files = false});
    host_.file(path("mss", 0), "1500\n");
    Block expected{};
    expected[0] = 2;
    EXPECT_EQ(getTOEparams(&card_), 63U);
    EXPECT_EQ(block(), expected);
}

TEST_F(OffloadParameters, TouchNothingBesideTheBlock) {
    give_port();
    host_.toe_device({.index = 4, .interfaces = {"eth2"}, .control_files = false});
    std::array<unsigned char, sizeof(CardInfo)> before;
    std::memcpy(before.data(), &card_, before.size());
    EXPECT_EQ(getTOEparams(&card_), 63U);
    std::memcpy(before.data() + 308, &card_.params, sizeof card_.params);
    EXPECT_EQ(std::memcmp(before.data(), &card_, before.size()), 0);
}

TEST_F(OffloadParameters, RefuseNullArguments) {
    int index = -7;
    EXPECT_EQ(getTOEDeviceIndex(nullptr, &index), 317U);
    EXPECT_EQ(getTOEDeviceIndex("eth2", nullptr), 317U);
    EXPECT_EQ(getTOEparams(nullptr), 317U);
}

TEST_F(OffloadParameters, PrintNothing) {
    host_.toe_device({.index = 0, .interfaces = {"eth2"}});
    EXPECT_EQ(test::told([&] { EXPECT_EQ(test::printed([&] { getTOEparams(&card_); }), ""); }), "");
}

}  // namespace
