// Port settings on interfaces of the kernel (a veth pair, a tap), compared with ip, ethtool and
// sysctl.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "support/file_text.hpp"
#include "support/output.hpp"
#include "support/private_network.hpp"

namespace {

using testing::HasSubstr;

constexpr char kConfFile[] = "/etc/kestrix-plexo/kxportparams.conf";
constexpr uint32_t kOffloads = 0x301c00;
constexpr uint32_t kMtu = 0x4;

template <std::size_t N>
void put(char (&field)[N], std::string_view text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), text.size());
}

// The MTU as ip shows it.
int ip_mtu(const std::string& name) {
    return nlohmann::json::parse(test::must("ip -j link show " + name))[0]["mtu"].get<int>();
}

// A line of `ethtool -k`: whether the feature is on. (Newer kernels count kinds of segmentation
// under "tcp-segmentation-offload" that the request for TCP segmentation does not reach.)
bool ethtool_feature(const std::string& name, const std::string& feature) {
    for (const std::string& line : test::lines_of(test::must("ethtool -k " + name))) {
        if (line.substr(std::min(line.find_first_not_of('\t'), line.size()))
                .starts_with(feature + ":")) {
            return line.find(": on") != line.npos;
        }
    }
    ADD_FAILURE() << "ethtool knows no " << feature;
    return false;
}

struct Features {
    bool rx_checksum, tx_checksum, scatter_gather, tso, gso;
    friend bool operator==(const Features&, const Features&) = default;
};

Features ethtool_features(const std::string& name) {
    return {
        ethtool_feature(name, "rx-checksumming"), ethtool_feature(name, "tx-checksumming"),
        ethtool_feature(name, "scatter-gather"), ethtool_feature(name, "tx-tcp-segmentation"),
        ethtool_feature(name, "generic-segmentation-offload")};
}

void make_interfaces() {
    test::must("ip link add veth0 type veth peer name veth1");
    test::must("ip link set veth0 up");
}

class RealPort : public testing::Test {
protected:
    static void SetUpTestSuite() {
        why_not_ = test::enter_private_network();
        if (why_not_.empty()) {
            std::filesystem::create_directory("/etc/kestrix-plexo");
        }
    }
    void SetUp() override {
        if (!why_not_.empty()) {
            GTEST_SKIP() << why_not_;
        }
        test::shell("ip link del veth0 2>/dev/null");
        make_interfaces();
        std::filesystem::remove(kConfFile);
        put(port_.interface_name, "veth0");
    }

    uint32_t apply(uint32_t mask) {
        port_.settings.change_mask = mask;
        uint32_t status = 0;
        test::printed([&] { status = setPortParams(&port_); });
        return status;
    }

    void put_switches(const char* rx, const char* tx, const char* sg, uint8_t tso, uint8_t gso) {
        put(port_.settings.rx_checksum, rx);
        put(port_.settings.tx_checksum, tx);
        put(port_.settings.scatter_gather, sg);
        port_.settings.tso = tso;
        port_.settings.gso = gso;
    }

    static inline std::string why_not_;
    PortInfo port_{};
};

TEST_F(RealPort, TheMtuIsWhatIpShows) {
    for (const int mtu : {68, 1500, 9000, 10222}) {
        put(port_.settings.mtu, std::to_string(mtu));
        EXPECT_EQ(apply(kMtu), 0U) << errStr;
        EXPECT_EQ(ip_mtu("veth0"), mtu);
    }
    EXPECT_EQ(test::file_text(kConfFile), "veth0.mtu = 10222\n");
    put(port_.settings.mtu, "22");
    EXPECT_EQ(apply(kMtu), 70U) << "less than the kernel takes for this interface";
    EXPECT_STREQ(errStr, "Set MTU for interface veth0failed: Unknown Error ");
    EXPECT_EQ(ip_mtu("veth0"), 10222);
}

TEST_F(RealPort, TheSwitchesAreWhatEthtoolShows) {
    put_switches("0", "1", "1", 1, 1);
    EXPECT_EQ(apply(kOffloads), 0U) << errStr;
    EXPECT_EQ(ethtool_features("veth0"), (Features{false, true, true, true, true}));
    put_switches("1", "1", "1", 0, 0);
    EXPECT_EQ(apply(kOffloads), 0U) << errStr;
    EXPECT_EQ(ethtool_features("veth0"), (Features{true, true, true, false, false}));
    put_switches("1", "1", "1", 1, 1);
    EXPECT_EQ(apply(kOffloads), 0U) << errStr;
    EXPECT_EQ(ethtool_features("veth0"), (Features{true, true, true, true, true}));
}

TEST_F(RealPort, EachSwitchAloneIsWhatEthtoolShows) {
    struct Row {
        uint32_t bit;
        const char* feature;
    };
    for (const auto& [bit, feature] :
         {Row{0x1000, "rx-checksumming"}, Row{0x800, "tx-checksumming"},
          Row{0x100000, "scatter-gather"}, Row{0x400, "tx-tcp-segmentation"},
          Row{0x200000, "generic-segmentation-offload"}}) {
        put_switches("0", "0", "0", 0, 0);
        EXPECT_EQ(apply(bit), 0U) << feature << errStr;
        EXPECT_FALSE(ethtool_feature("veth0", feature)) << feature;
        put_switches("1", "1", "1", 1, 1);
        EXPECT_EQ(apply(kOffloads), 0U) << errStr;
        EXPECT_TRUE(ethtool_feature("veth0", feature)) << feature;
    }
}

TEST_F(RealPort, WhatTheDriverLacksIsToldInTheKernelsWords) {
    EXPECT_EQ(apply(0x3c000000), 70U);
    EXPECT_STREQ(errStr, "") << "a driver without rings (ethtool -g has none either) says nothing";
    EXPECT_NE(test::shell("ethtool -g veth0 2>/dev/null").status, 0);
    EXPECT_EQ(apply(0x80000000), 70U);
    EXPECT_STREQ(errStr, "Reset auto-negotiation failed for veth0: Operation not supported; ");
    port_.settings.message_level = 3;
    EXPECT_EQ(apply(0x400000), 70U);
    EXPECT_STREQ(errStr, "Set Message level failed: veth0 for Operation not supported; ");
    port_.settings.autoneg = 0;
    port_.settings.speed = 1000;
    EXPECT_EQ(apply(0x2), 70U);
    EXPECT_STREQ(errStr, "Set ethtool settings failed: veth0 for Operation not supported; ");
    EXPECT_EQ(apply(0x800000), 70U);
    EXPECT_EQ(apply(0x1000060), 0U) << "a driver without pause is no failure";
}

TEST_F(RealPort, AForcedLinkAndTheMessageLevelAreWhatEthtoolShows) {
    if (test::shell("ip tuntap add tap0 mode tap 2>/dev/null").status != 0) {
        GTEST_SKIP() << "this kernel has no tap interfaces";
    }
    put(port_.interface_name, "tap0");
    port_.settings.autoneg = 0;
    port_.settings.message_level = 5;
    for (const uint16_t speed : {uint16_t{10}, uint16_t{1000}, uint16_t{10000}}) {
        port_.settings.speed = speed;
        port_.settings.duplex = speed == 10 ? 0 : 1;
        EXPECT_EQ(apply(0x400002), 0U) << errStr;
        const std::string shown = test::must("ethtool tap0");
        EXPECT_THAT(shown, HasSubstr("Speed: " + std::to_string(speed) + "Mb/s"));
        EXPECT_THAT(shown, HasSubstr(speed == 10 ? "Duplex: Half" : "Duplex: Full"));
        EXPECT_THAT(shown, HasSubstr("Auto-negotiation: off"));
        EXPECT_THAT(shown, HasSubstr("message level: 0x00000005"));
    }
    EXPECT_EQ(
        test::file_text(kConfFile),
        "tap0.link_autoneg = 0\ntap0.speed = 10000\ntap0.duplex = 1\ntap0.messageLevel = 5\n");
    test::must("ip link del tap0");
}

TEST_F(RealPort, AMissingInterfaceIsToldInTheKernelsWords) {
    put(port_.interface_name, "veth7");
    put(port_.settings.mtu, "1500");
    EXPECT_EQ(apply(0x80000004), 70U);
    EXPECT_STREQ(
        errStr,
        "Set MTU for interface veth7failed: Unknown Error "
        "Reset auto-negotiation failed for veth7: No such device; ");
    EXPECT_FALSE(std::filesystem::exists(kConfFile));
}

// A reboot: the interfaces are created again, and the service's command runs.
TEST_F(RealPort, SavedSettingsOutliveAReboot) {
    put(port_.settings.mtu, "1234");
    put_switches("0", "1", "1", 0, 1);
    ASSERT_EQ(apply(kMtu | kOffloads), 0U) << errStr;
    const Features before = ethtool_features("veth0");
    test::must("ip link del veth0");
    make_interfaces();
    ASSERT_EQ(ip_mtu("veth0"), 1500);
    ASSERT_NE(ethtool_features("veth0"), before);
    test::must(KXCTL_PROGRAM " restore");
    EXPECT_EQ(ip_mtu("veth0"), 1234);
    EXPECT_EQ(ethtool_features("veth0"), before);
    test::must("ip link del veth0");
    EXPECT_THAT(test::must(KXCTL_PROGRAM " restore"), HasSubstr("no such interface"));
}

TEST_F(RealPort, SavedSysctlLinesAreWhatProcpsTakes) {
    if (test::shell("command -v sysctl").status != 0) {
        GTEST_SKIP() << "sysctl is not installed";
    }
    const std::string path = "/proc/sys/net/ipv4/ip_default_ttl";
    std::ofstream("/etc/sysctl.conf") << "# ours\n  net.ipv4.ip_forward = 0\n";
    EXPECT_EQ(saveSysctlParam(path.c_str(), 33), 0);
    test::must("sysctl -p /etc/sysctl.conf");
    EXPECT_EQ(test::file_text(path), "33\n");
    EXPECT_EQ(saveSysctlParam(path.c_str(), 44), 0);
    EXPECT_EQ(
        test::must("sysctl -p /etc/sysctl.conf"),
        "net.ipv4.ip_forward = 0\nnet.ipv4.ip_default_ttl = 44\n");
    EXPECT_EQ(test::file_text(path), "44\n");
}

}  // namespace
