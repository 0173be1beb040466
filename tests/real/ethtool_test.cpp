// Port parameters and counters of real interfaces, compared with the output of ethtool: veth and
// tap devices in a separate network namespace, and this machine's PCI network adapter.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kxlinhw/port.h>
#include <kxlinhw/statistics.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/shell.hpp"

namespace {

// The requests of the library to the kernel, which the two wrappers below record.
struct KernelCalls {
    int sockets = 0;
    std::vector<uint32_t> commands;  // of the Ethernet tool
};

KernelCalls calls;

}  // namespace

extern "C" KX_EXPORT int socket(int domain, int type, int protocol) noexcept {
    ++calls.sockets;
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

extern "C" KX_EXPORT int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == SIOCETHTOOL) {
        uint32_t command = 0;
        std::memcpy(&command, static_cast<ifreq*>(argument)->ifr_data, sizeof command);
        calls.commands.push_back(command);
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

namespace {

using Fields = std::map<std::string, std::string>;

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The output of an ethtool command as "key: value". The second occurrence of a key (maxima, then
// current sizes) gets a "2" after its name.
Fields ethtool(const std::string& form, const std::string& interface_name) {
    Fields fields;
    const std::string command = "ethtool " + form + " " + interface_name + " 2>/dev/null";
    for (const std::string& line : test::lines_of(test::shell(command).output)) {
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos) {
            const std::string key = trimmed(line.substr(0, colon));
            const std::string value = trimmed(line.substr(colon + 1));
            if (!fields.emplace(key, value).second) {
                fields.emplace(key + "2", value);
            }
        }
    }
    return fields;
}

// The number that a field shows; nothing for a field that ethtool does not print, 0 for "n/a".
std::optional<uint32_t> number(const Fields& fields, const std::string& key) {
    const auto found = fields.find(key);
    if (found == fields.end()) {
        return std::nullopt;
    }
    return found->second == "n/a" ? 0
                                  : static_cast<uint32_t>(std::stoul(found->second, nullptr, 0));
}

// A switch of a driver: "on", "off", "on [fixed]".
std::string switch_text(const Fields& fields, const std::string& key) {
    return fields.at(key).starts_with("on") ? "1" : "0";
}

uint32_t speed_number(const std::string& text) {
    return text == "Unknown!" ? 0xFFFF : static_cast<uint32_t>(std::stoul(text));
}

uint8_t duplex_number(const std::string& text) {
    return text == "Full" ? 1 : text == "Half" ? 0 : 255;
}

void expect_link_as_ethtool_prints(const PortInfo& port, const std::string& name) {
    const Fields link = ethtool("", name);
    const bool detected = link.at("Link detected") == "yes";
    EXPECT_EQ(port.link_detected, detected);
    EXPECT_EQ(port.link_detected_again, detected);
    EXPECT_EQ(checkLinkStatus(name.c_str()), detected);
    EXPECT_EQ(+port.settings.speed, speed_number(link.at("Speed")));
    EXPECT_EQ(port.settings.duplex, duplex_number(link.at("Duplex")));
    EXPECT_EQ(port.settings.autoneg, link.at("Auto-negotiation") == "on");
    EXPECT_EQ(port.autoneg_supported, link.at("Supports auto-negotiation") == "Yes");
    EXPECT_EQ(port.autoneg_advertised, link.at("Advertised auto-negotiation") == "Yes");
    EXPECT_EQ(+port.phy_address, *number(link, "PHYAD"));
    EXPECT_EQ(port.connector, link.at("Port"));
    EXPECT_STREQ(port.transceiver, link.at("Transceiver") == "internal" ? "Internal" : "External");
    if (link.at("Supported ports") == "[  ]") {
        EXPECT_STREQ(port.supported_connectors, "N/A");
    }
    if (link.at("Supported link modes") == "Not reported") {
        EXPECT_STREQ(port.supported_modes, "Not Reported");
    }
    if (link.at("Advertised link modes") == "Not reported") {
        EXPECT_STREQ(port.advertised_modes, "Not reported");
    }
    EXPECT_EQ(+port.settings.message_level, number(link, "Current message level").value_or(0));
    if (link.contains("Supports Wake-on")) {
        EXPECT_EQ(port.wol_supported, link.at("Supports Wake-on"));
        EXPECT_EQ(port.wol_enabled, link.at("Wake-on"));
    } else {
        EXPECT_STREQ(port.wol_supported, "");
    }
}

// The request for TCP segmentation is older than some of the features that ethtool combines as
// "tcp-segmentation-offload"; these are the features that it covers.
std::string tcp_segmentation_text(const Fields& features) {
    for (const char* const key :
         {"tx-tcp-segmentation", "tx-tcp-ecn-segmentation", "tx-tcp-mangleid-segmentation",
          "tx-tcp6-segmentation"}) {
        if (features.contains(key) && switch_text(features, key) == "1") {
            return "1";
        }
    }
    return "0";
}

void expect_offloads_as_ethtool_prints(const PortInfo& port, const std::string& name) {
    const Fields features = ethtool("-k", name);
    EXPECT_EQ(port.settings.rx_checksum, switch_text(features, "rx-checksumming"));
    EXPECT_EQ(port.settings.tx_checksum, switch_text(features, "tx-checksumming"));
    EXPECT_EQ(port.settings.scatter_gather, switch_text(features, "scatter-gather"));
    EXPECT_EQ(std::to_string(port.settings.tso), tcp_segmentation_text(features));
    EXPECT_EQ(
        std::to_string(port.settings.gso), switch_text(features, "generic-segmentation-offload"));
}

// What ethtool cannot read from a driver stays zero in the port.
void expect_tunables_as_ethtool_prints(const PortInfo& port, const std::string& name) {
    const Fields rings = ethtool("-g", name);
    EXPECT_EQ(+port.ring_maxima.rx, number(rings, "RX").value_or(0));
    EXPECT_EQ(+port.ring_maxima.rx_mini, number(rings, "RX Mini").value_or(0));
    EXPECT_EQ(+port.ring_maxima.rx_jumbo, number(rings, "RX Jumbo").value_or(0));
    EXPECT_EQ(+port.ring_maxima.tx, number(rings, "TX").value_or(0));
    EXPECT_EQ(+port.settings.rings.rx, number(rings, "RX2").value_or(0));
    EXPECT_EQ(+port.settings.rings.rx_mini, number(rings, "RX Mini2").value_or(0));
    EXPECT_EQ(+port.settings.rings.rx_jumbo, number(rings, "RX Jumbo2").value_or(0));
    EXPECT_EQ(+port.settings.rings.tx, number(rings, "TX2").value_or(0));

    const Fields coalescing = ethtool("-c", name);
    EXPECT_EQ(+port.settings.rx_usecs, number(coalescing, "rx-usecs").value_or(0));

    const Fields pause = ethtool("-a", name);
    if (pause.contains("Autonegotiate")) {
        EXPECT_EQ(port.settings.pause_autoneg, pause.at("Autonegotiate") == "on");
        EXPECT_EQ(port.settings.rx_pause, switch_text(pause, "RX"));
        EXPECT_EQ(port.settings.tx_pause, switch_text(pause, "TX"));
    } else {
        EXPECT_STREQ(port.settings.rx_pause, "");
        EXPECT_STREQ(port.settings.tx_pause, "");
    }
}

void expect_parameters_as_ethtool_prints(const std::string& name) {
    SCOPED_TRACE(name);
    PortInfo port{};
    ASSERT_EQ(getPortParameters(name.c_str(), &port), 0U);
    expect_link_as_ethtool_prints(port, name);
    expect_offloads_as_ethtool_prints(port, name);
    expect_tunables_as_ethtool_prints(port, name);
}

using Counters = std::vector<std::pair<std::string, uint64_t>>;

Counters ethtool_counters(const std::string& name) {
    Counters counters;
    const std::string command = "ethtool -S " + name + " 2>/dev/null";
    for (const std::string& line : test::lines_of(test::shell(command).output)) {
        const std::size_t colon = line.rfind(": ");
        if (colon != std::string::npos) {
            counters.emplace_back(
                trimmed(line.substr(0, colon)).substr(0, sizeof(StatEntry::name)),
                std::stoull(line.substr(colon + 2)));
        }
    }
    return counters;
}

struct FreeChain {
    void operator()(StatEntry* entry) const {
        while (entry != nullptr) {
            StatEntry* const next = entry->next;
            std::free(entry);
            entry = next;
        }
    }
};

Counters library_counters(const std::string& name) {
    PortInfo port{};
    EXPECT_EQ(getTxRxStats(name.c_str(), &port), 0U);
    const std::unique_ptr<StatEntry, FreeChain> chain(port.stats);
    Counters counters;
    for (const StatEntry* entry = chain.get(); entry != nullptr; entry = entry->next) {
        EXPECT_EQ(entry->group, 0);
        counters.emplace_back(
            std::string(entry->name, strnlen(entry->name, sizeof entry->name)), +entry->value);
    }
    return counters;
}

// Counters change while the tools run, so the library's values are between two readings of ethtool.
void expect_counters_as_ethtool_prints(const std::string& name) {
    SCOPED_TRACE(name);
    const Counters before = ethtool_counters(name);
    const Counters ours = library_counters(name);
    const Counters after = ethtool_counters(name);
    ASSERT_FALSE(before.empty());
    ASSERT_EQ(ours.size(), before.size());
    ASSERT_EQ(ours.size(), after.size());
    for (std::size_t k = 0; k < ours.size(); ++k) {
        EXPECT_EQ(ours[k].first, before[k].first) << k;
        EXPECT_GE(ours[k].second, before[k].second) << ours[k].first;
        EXPECT_LE(ours[k].second, after[k].second) << ours[k].first;
    }
}

std::optional<std::string> first_pci_interface() {
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/net")) {
        const std::string name = entry.path().filename();
        if (ethtool("-i", name)["bus-info"].starts_with("0000:")) {
            return name;
        }
    }
    return std::nullopt;
}

class PciInterface : public testing::Test {
protected:
    void SetUp() override {
        const auto found = first_pci_interface();
        if (!found) {
            GTEST_SKIP() << "no interface of this machine sits on the PCI bus";
        }
        name_ = *found;
    }

    std::string name_;
};

TEST_F(PciInterface, ParametersAreWhatEthtoolPrints) { expect_parameters_as_ethtool_prints(name_); }

TEST_F(PciInterface, CountersAreWhatEthtoolPrints) {
    if (ethtool_counters(name_).empty()) {
        GTEST_SKIP() << name_ << " has no counters";
    }
    expect_counters_as_ethtool_prints(name_);
}

// A network namespace for one test, with the devices that it makes in it.
class PrivateNetwork : public testing::Test {
protected:
    void SetUp() override {
        outside_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        if (outside_ < 0 || unshare(CLONE_NEWNET) != 0) {
            GTEST_SKIP() << "no network namespace of our own here: " << std::strerror(errno);
        }
        entered_ = true;
    }
    void TearDown() override {
        if (entered_) {
            ASSERT_EQ(setns(outside_, CLONE_NEWNET), 0);
        }
        close(outside_);
    }

    // Run a command that prepares the network; false, and the test skipped, when the kernel cannot.
    static bool prepare(const std::string& command) {
        const auto result = test::shell(command + " 2>&1");
        if (result.status != 0) {
            [&] { GTEST_SKIP() << command << ": " << result.output; }();
        }
        return result.status == 0;
    }

    static bool make_pair() {
        return prepare("ip link add kx0 type veth peer name kx1") &&
               prepare("ip link set kx0 up") && prepare("ip link set kx1 up");
    }

private:
    int outside_ = -1;
    bool entered_ = false;
};

TEST_F(PrivateNetwork, BothEndsOfAPairAreWhatEthtoolPrints) {
    if (!make_pair()) {
        return;
    }
    expect_parameters_as_ethtool_prints("kx0");
    expect_parameters_as_ethtool_prints("kx1");
}

TEST_F(PrivateNetwork, LinkFollowsThePeer) {
    if (!make_pair()) {
        return;
    }
    EXPECT_EQ(checkLinkStatus("kx0"), 1U);
    ASSERT_TRUE(prepare("ip link set kx1 down"));
    EXPECT_EQ(checkLinkStatus("kx0"), 0U);
    expect_parameters_as_ethtool_prints("kx0");
}

TEST_F(PrivateNetwork, EveryOffloadFollowsItsSwitch) {
    if (!make_pair()) {
        return;
    }
    for (const std::string feature : {"rx", "tx", "sg", "tso", "gso"}) {
        for (const std::string state : {"off", "on"}) {
            SCOPED_TRACE(feature + " " + state);
            ASSERT_TRUE(prepare("ethtool -K kx0 " + feature + " " + state));
            expect_parameters_as_ethtool_prints("kx0");
        }
    }
}

TEST_F(PrivateNetwork, LinkSettingsAndMessageLevelFollowTheTapDevice) {
    if (!prepare("ip tuntap add dev kxtap mode tap") || !prepare("ip link set kxtap up")) {
        return;
    }
    expect_parameters_as_ethtool_prints("kxtap");
    for (const std::string settings :
         {"speed 100 duplex half autoneg off", "speed 1000 duplex full autoneg off",
          "speed 10 duplex half autoneg off port mii", "autoneg off port bnc",
          "autoneg off port fibre", "autoneg off port da", "autoneg off phyad 7", "msglvl 0x7fff",
          "msglvl 0"}) {
        SCOPED_TRACE(settings);
        if (!prepare("ethtool -s kxtap " + settings)) {
            return;
        }
        expect_parameters_as_ethtool_prints("kxtap");
    }
}

TEST_F(PrivateNetwork, CountersOfAPairWithTrafficAreWhatEthtoolPrints) {
    if (!make_pair()) {
        return;
    }
    test::shell("ping -6 -c 1 -W 1 ff02::1%kx0 2>/dev/null");
    expect_counters_as_ethtool_prints("kx0");
    expect_counters_as_ethtool_prints("kx1");
}

TEST_F(PrivateNetwork, MissingInterfaceGivesNothing) {
    EXPECT_EQ(checkLinkStatus("kxnone"), 0xFFFFFFFFU);
    PortInfo port;
    std::memset(&port, 0xEE, sizeof port);
    const PortInfo before = port;
    EXPECT_EQ(getPortParameters("kxnone", &port), 1U);
    EXPECT_EQ(std::memcmp(&port, &before, sizeof port), 0);
    port.stats = nullptr;
    EXPECT_EQ(getTxRxStats("kxnone", &port), 1U);
    EXPECT_TRUE(port.stats == nullptr);
}

TEST_F(PrivateNetwork, InterfaceWithoutCountersGives1) {
    PortInfo port{};
    EXPECT_EQ(getTxRxStats("lo", &port), 1U);
    EXPECT_TRUE(port.stats == nullptr);
}

TEST_F(PrivateNetwork, ParametersCostOneSocketAndThirteenRequestsInTheirOrder) {
    if (!make_pair()) {
        return;
    }
    calls = {};
    PortInfo port{};
    EXPECT_EQ(getPortParameters("kx0", &port), 0U);
    EXPECT_EQ(calls.sockets, 1);
    EXPECT_EQ(
        calls.commands,
        (std::vector<uint32_t>{
            ETHTOOL_GSET, ETHTOOL_GLINK, ETHTOOL_GMSGLVL, ETHTOOL_GLINK, ETHTOOL_GRXCSUM,
            ETHTOOL_GTXCSUM, ETHTOOL_GSG, ETHTOOL_GTSO, ETHTOOL_GGSO, ETHTOOL_GWOL,
            ETHTOOL_GCOALESCE, ETHTOOL_GRINGPARAM, ETHTOOL_GPAUSEPARAM}));
}

TEST_F(PrivateNetwork, CountersCostOneSocketAndThreeRequests) {
    if (!make_pair()) {
        return;
    }
    calls = {};
    EXPECT_FALSE(library_counters("kx0").empty());
    EXPECT_EQ(calls.sockets, 1);
    EXPECT_EQ(
        calls.commands,
        (std::vector<uint32_t>{ETHTOOL_GDRVINFO, ETHTOOL_GSTRINGS, ETHTOOL_GSTATS}));
}

}  // namespace
