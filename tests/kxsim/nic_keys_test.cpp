// The [nic] table of a scenario's interfaces, as the ethtool program and the library then see it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class NicKeys : public testing::Test {
protected:
    // What a command prints on a host with one interface whose [nic] table has these keys.
    std::string on_host(const std::string& keys, const std::string& command) {
        const std::string file = directory_.write(
            "one.toml", "[[interface]]\nname = \"eth2\"\n\n[interface.nic]\n" + keys);
        const fs::path program =
            fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "kxsim";
        return test::shell(
                   test::shell_word(program) + " run -s " + test::shell_word(file) + " -- sh -c '" +
                   command + "' 2>&1")
            .output;
    }

    // What the scenario is refused with.
    std::string complaint(const std::string& keys) { return on_host(keys, "true"); }

    test::ScratchDirectory directory_;
};

TEST_F(NicKeys, LinkKeys) {
    const std::string output = on_host(
        "link = true\nspeed = 1000\nduplex = \"half\"\nautoneg = false\nsupported = 0x60\n"
        "advertising = 0x20\nconnector = 2\nphy_address = 9\ntransceiver = 1\n"
        "message_level = 0x21\nwake_supported = 0x21\nwake_enabled = 0x20\n",
        "ethtool eth2");
    EXPECT_THAT(
        output,
        AllOf(
            HasSubstr("Speed: 1000Mb/s"), HasSubstr("Duplex: Half"),
            HasSubstr("Auto-negotiation: off"), HasSubstr("Supports auto-negotiation: Yes"),
            HasSubstr("Advertised auto-negotiation: No"), HasSubstr("1000baseT/Full"),
            HasSubstr("Port: MII"), HasSubstr("PHYAD: 9"), HasSubstr("Transceiver: external"),
            HasSubstr("Current message level: 0x00000021"), HasSubstr("Link detected: yes")));
    EXPECT_THAT(output, AllOf(HasSubstr("Supports Wake-on: pg"), HasSubstr("Wake-on: g")));
    EXPECT_THAT(
        on_host("link = false\nduplex = \"unknown\"\n", "ethtool eth2"),
        AllOf(HasSubstr("Link detected: no"), HasSubstr("Duplex: Unknown! (255)")));
    EXPECT_THAT(on_host("duplex = \"full\"\n", "ethtool eth2"), HasSubstr("Duplex: Full"));
}

TEST_F(NicKeys, SpeedsOfMoreThan16Bits) {
    EXPECT_THAT(on_host("speed = 100000\n", "ethtool eth2"), HasSubstr("Speed: 100000Mb/s"));
    EXPECT_THAT(on_host("speed = 4294967295\n", "ethtool eth2"), HasSubstr("Speed: Unknown!"));
}

TEST_F(NicKeys, MultiplesThatADriverRoundsTo) {
    EXPECT_THAT(
        on_host(
            "ring_multiple = 64\n", "ethtool -G eth2 rx 65 tx 16383; ethtool -g eth2 | tail -5"),
        AllOf(HasSubstr("RX:\t\t128\n"), HasSubstr("TX:\t\t16384\n")));
    EXPECT_THAT(
        on_host("usecs_multiple = 4\n", "ethtool -C eth2 rx-usecs 7; ethtool -c eth2"),
        HasSubstr("\nrx-usecs: 4\n"));
}

TEST_F(NicKeys, OffloadKeys) {
    const std::pair<const char*, const char*> rows[] = {
        {"rx_checksum", "rx-checksumming"},
        {"tx_checksum", "tx-checksumming"},
        {"scatter_gather", "scatter-gather"},
        {"tso", "tcp-segmentation-offload"},
        {"gso", "generic-segmentation-offload"}};
    for (const auto& [key, feature] : rows) {
        const std::string output =
            on_host(std::string(key) + " = false\n", "ethtool -k eth2 | grep -v \"^\\s\"");
        for (const auto& [other_key, other] : rows) {
            EXPECT_THAT(
                output, HasSubstr(std::string(other) + (other == feature ? ": off" : ": on")))
                << key << " = false, " << other_key;
        }
    }
}

TEST_F(NicKeys, TunableKeys) {
    const std::string keys =
        "rx_usecs = 33\nrings = [1, 2, 3, 4]\nring_maxima = [11, 12, 13, 14]\n"
        "pause_autoneg = false\nrx_pause = false\ntx_pause = true\n";
    EXPECT_THAT(on_host(keys, "ethtool -c eth2"), HasSubstr("rx-usecs: 33"));
    EXPECT_THAT(
        on_host(keys, "ethtool -g eth2"),
        AllOf(
            HasSubstr("RX:\t\t11\nRX Mini:\t12\nRX Jumbo:\t13\nTX:\t\t14"),
            HasSubstr("RX:\t\t1\nRX Mini:\t2\nRX Jumbo:\t3\nTX:\t\t4")));
    EXPECT_THAT(
        on_host(keys, "ethtool -a eth2"), HasSubstr("Autonegotiate:\toff\nRX:\t\toff\nTX:\t\ton"));
}

TEST_F(NicKeys, CountersReplaceTheUsualOnesAndMove) {
    const std::string keys =
        "[[interface.nic.counter]]\nname = \"rx_frames\"\nvalue = 5\nstep = 2\n"
        "[[interface.nic.counter]]\nname = \"errors\"\n";
    EXPECT_EQ(
        on_host(keys, "ethtool -S eth2; ethtool -S eth2"),
        "NIC statistics:\n     rx_frames: 5\n     errors: 0\n"
        "NIC statistics:\n     rx_frames: 7\n     errors: 0\n");
    EXPECT_THAT(on_host("counter = []\n", "ethtool -S eth2"), HasSubstr("no stats available"));
    EXPECT_THAT(on_host("", "ethtool -S eth2"), HasSubstr("rx_bytes: "));
}

TEST_F(NicKeys, DriverMayTellUntrueNumbers) {
    EXPECT_THAT(on_host("announced_counters = 1\n", "ethtool -S eth2"), Not(HasSubstr("tx_bytes")));
    EXPECT_THAT(
        on_host("named_counters = 1\nvalued_counters = 1\n", "ethtool -S eth2"),
        Not(HasSubstr("tx_bytes")));
}

TEST_F(NicKeys, MistakesAreNamedWithTheirPlace) {
    const std::pair<const char*, const char*> rows[] = {
        {"speed = 4294967296\n", "speed is 4294967296, expected a number from 0 to 4294967295"},
        {"duplex = \"both\"\n", "duplex is \"both\", expected half, full or unknown"},
        {"tso = 1\n", "tso is 1, expected true or false"},
        {"rings = [1, 2]\n", "rings holds 2 numbers, expected four"},
        {"counter = 3\n", "counter is 3, expected tables [[counter]]"},
        {"[[interface.nic.counter]]\nvalue = 1\n", "[[counter]] has no name"},
        {"[[interface.nic.counter]]\nname = \"a\"\nworth = 1\n", "unknown key worth"},
        {"sped = 1\n", "[nic] has the unknown key sped, expected link, speed, duplex"},
        {"[[interface.nic.counter]]\nname = \"0123456789012345678901234567890123\"\n",
         "expected 1 to 32 characters"},
    };
    for (const auto& [keys, message] : rows) {
        EXPECT_THAT(complaint(keys), AllOf(HasSubstr("one.toml:"), HasSubstr(message))) << keys;
    }
}

TEST_F(NicKeys, NicIsATable) {
    const fs::path file = directory_ / "two.toml";
    std::ofstream(file) << "[[interface]]\nname = \"eth2\"\nnic = 3\n";
    const fs::path program =
        fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "kxsim";
    EXPECT_THAT(
        test::shell(
            test::shell_word(program) + " run -s " + test::shell_word(file) + " -- true 2>&1")
            .output,
        HasSubstr("nic is 3, expected a table [nic]"));
}

}  // namespace
