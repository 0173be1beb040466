// The simulated drivers: settings stay for every process; counters grow; every request can be
// refused; the ethtool program sees the values of the builder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/shell.hpp"

namespace {

using testing::HasSubstr;

class NicModel : public testing::Test {
protected:
    NicModel() {
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
        attached_.emplace(host_.attach());
        socket_ = socket(AF_INET, SOCK_DGRAM, 0);
    }
    ~NicModel() override { close(socket_); }

    // Carry out a command; returns an errno, or 0.
    int run(void* command) const {
        ifreq request{};
        std::strcpy(request.ifr_name, "eth2");
        request.ifr_data = static_cast<char*>(command);
        return ioctl(socket_, SIOCETHTOOL, &request) == 0 ? 0 : errno;
    }

    template <class Record>
    Record get(uint32_t command) const {
        Record record{};
        record.cmd = command;
        EXPECT_EQ(run(&record), 0);
        return record;
    }

    int set_value(uint32_t command, uint32_t value) const {
        ethtool_value record{};
        record.cmd = command;
        record.data = value;
        return run(&record);
    }

    static std::string tool(const std::string& arguments) {
        return test::shell("ethtool " + arguments + " 2>&1").output;
    }

    void give(const std::vector<kxsim::NicCounter>& counters) {
        kxsim::Nic nic = host_.nic("eth2");
        nic.counters = counters;
        host_.nic("eth2", nic);
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
    int socket_ = -1;
};

struct Number {
    const char* name;
    uint32_t get;
    uint32_t set;
    uint32_t kxsim::NicSettings::*setting;
};

constexpr Number kSwitches[] = {
    {"rx_checksum", ETHTOOL_GRXCSUM, ETHTOOL_SRXCSUM, &kxsim::NicSettings::rx_checksum},
    {"tx_checksum", ETHTOOL_GTXCSUM, ETHTOOL_STXCSUM, &kxsim::NicSettings::tx_checksum},
    {"scatter_gather", ETHTOOL_GSG, ETHTOOL_SSG, &kxsim::NicSettings::scatter_gather},
    {"tso", ETHTOOL_GTSO, ETHTOOL_STSO, &kxsim::NicSettings::tso},
    {"gso", ETHTOOL_GGSO, ETHTOOL_SGSO, &kxsim::NicSettings::gso},
};

TEST_F(NicModel, SwitchesStayAsTheyAreSetAndApart) {
    for (const Number& off : kSwitches) {
        ASSERT_EQ(set_value(off.set, 0), 0) << off.name;
        for (const Number& each : kSwitches) {
            const uint32_t expected = each.name == off.name ? 0 : 1;
            EXPECT_EQ(get<ethtool_value>(each.get).data, expected) << off.name << each.name;
            EXPECT_EQ(host_.nic("eth2").*each.setting, expected);
        }
        ASSERT_EQ(set_value(off.set, 17), 0);
        EXPECT_EQ(get<ethtool_value>(off.get).data, 1U);
    }
}

TEST_F(NicModel, MessageLevelStaysAsItIsSet) {
    ASSERT_EQ(set_value(ETHTOOL_SMSGLVL, 0x8001), 0);
    EXPECT_EQ(get<ethtool_value>(ETHTOOL_GMSGLVL).data, 0x8001U);
}

// The record with room for every link mode, and behind it three masks: supported, advertised, of
// the other side.
struct Modes {
    static constexpr std::size_t kHeadWords = sizeof(ethtool_link_settings) / 4;
    alignas(ethtool_link_settings) std::array<std::uint32_t, kHeadWords + 9> words{};

    explicit Modes(std::uint32_t command, __s8 mask_words = 3) {
        head().cmd = command;
        head().link_mode_masks_nwords = mask_words;
    }
    ethtool_link_settings& head() {
        return *reinterpret_cast<ethtool_link_settings*>(words.data());
    }
    std::uint32_t& supported() { return words[kHeadWords]; }
    std::uint32_t& advertising() { return words[kHeadWords + 3]; }
};

TEST_F(NicModel, TheRecordForEveryLinkModeTellsTheSame) {
    Modes first(ETHTOOL_GLINKSETTINGS, 0);
    ASSERT_EQ(run(&first), 0);
    EXPECT_EQ(first.head().link_mode_masks_nwords, -3) << "callers ask for the length first";
    Modes modes(ETHTOOL_GLINKSETTINGS);
    ASSERT_EQ(run(&modes), 0);
    const auto link = get<ethtool_cmd>(ETHTOOL_GSET);
    EXPECT_EQ(modes.head().speed, 10000U);
    EXPECT_EQ(modes.supported(), link.supported);
    EXPECT_EQ(modes.advertising(), link.advertising);

    modes.head().cmd = ETHTOOL_SLINKSETTINGS;
    modes.head().speed = 400000;
    modes.head().autoneg = 0;
    modes.advertising() = 0x1000;
    ASSERT_EQ(run(&modes), 0);
    const auto now = get<ethtool_cmd>(ETHTOOL_GSET);
    EXPECT_EQ(ethtool_cmd_speed(&now), 400000U);
    EXPECT_EQ(now.autoneg, 0);
    EXPECT_EQ(now.advertising, 0x1000U);
    EXPECT_EQ(now.supported, link.supported);
    Modes shorter(ETHTOOL_SLINKSETTINGS, 2);
    EXPECT_EQ(run(&shorter), EINVAL);
    host_.refuse("eth2", ETHTOOL_GSET, EPERM);
    EXPECT_EQ(run(&first), EPERM) << "the driver is asked the same";
}

TEST_F(NicModel, ADriverMayAcceptARequestAndIgnoreIt) {
    host_.ignore("eth2", ETHTOOL_STSO);
    host_.ignore("eth2", ETHTOOL_SRINGPARAM);
    EXPECT_EQ(set_value(ETHTOOL_STSO, 0), 0);
    EXPECT_EQ(get<ethtool_value>(ETHTOOL_GTSO).data, 1U);
    auto rings = get<ethtool_ringparam>(ETHTOOL_GRINGPARAM);
    rings.cmd = ETHTOOL_SRINGPARAM;
    rings.rx_pending = 99999;
    EXPECT_EQ(run(&rings), 0);
    EXPECT_EQ(get<ethtool_ringparam>(ETHTOOL_GRINGPARAM).rx_pending, 1024U);
    host_.refuse("eth2", ETHTOOL_STSO, 0);
    EXPECT_EQ(set_value(ETHTOOL_STSO, 0), 0);
    EXPECT_EQ(get<ethtool_value>(ETHTOOL_GTSO).data, 0U);
    EXPECT_THROW(host_.ignore("eth2", ETHTOOL_GTSO), std::invalid_argument);
    EXPECT_THROW(host_.ignore("eth2", SIOCDEVPRIVATE), std::invalid_argument);
}

TEST_F(NicModel, LinkSettingsStayButForWhatThePortIs) {
    auto link = get<ethtool_cmd>(ETHTOOL_GSET);
    const uint32_t supported = link.supported;
    link.cmd = ETHTOOL_SSET;
    link.supported = 0;
    link.transceiver = 1;
    link.advertising = 0x1000;
    link.speed = 100;
    link.duplex = 0;
    link.autoneg = 0;
    ASSERT_EQ(run(&link), 0);
    const auto now = get<ethtool_cmd>(ETHTOOL_GSET);
    EXPECT_EQ(now.supported, supported);
    EXPECT_EQ(now.transceiver, 0);
    EXPECT_EQ(now.advertising, 0x1000U);
    EXPECT_EQ(now.speed, 100);
    EXPECT_EQ(now.duplex, 0);
    EXPECT_EQ(now.autoneg, 0);
}

TEST_F(NicModel, RingsStayUpToTheirMaxima) {
    auto rings = get<ethtool_ringparam>(ETHTOOL_GRINGPARAM);
    rings.cmd = ETHTOOL_SRINGPARAM;
    rings.rx_pending = rings.rx_max_pending;
    rings.tx_pending = 64;
    ASSERT_EQ(run(&rings), 0);
    EXPECT_EQ(get<ethtool_ringparam>(ETHTOOL_GRINGPARAM).tx_pending, 64U);
    for (const auto member :
         {&ethtool_ringparam::rx_pending, &ethtool_ringparam::rx_mini_pending,
          &ethtool_ringparam::rx_jumbo_pending, &ethtool_ringparam::tx_pending}) {
        auto wanted = rings;
        wanted.*member = 16385;
        EXPECT_EQ(run(&wanted), EINVAL);
    }
    rings.rx_max_pending = 1;
    ASSERT_EQ(run(&rings), 0);
    EXPECT_EQ(get<ethtool_ringparam>(ETHTOOL_GRINGPARAM).rx_max_pending, 16384U);
}

TEST_F(NicModel, PauseAndCoalescingStayAsTheyAreSet) {
    auto pause = get<ethtool_pauseparam>(ETHTOOL_GPAUSEPARAM);
    pause.cmd = ETHTOOL_SPAUSEPARAM;
    pause.rx_pause = 0;
    ASSERT_EQ(run(&pause), 0);
    EXPECT_EQ(get<ethtool_pauseparam>(ETHTOOL_GPAUSEPARAM).rx_pause, 0U);
    EXPECT_EQ(get<ethtool_pauseparam>(ETHTOOL_GPAUSEPARAM).tx_pause, 1U);
    auto coalescing = get<ethtool_coalesce>(ETHTOOL_GCOALESCE);
    coalescing.cmd = ETHTOOL_SCOALESCE;
    coalescing.rx_coalesce_usecs = 77;
    coalescing.rate_sample_interval = 3;
    ASSERT_EQ(run(&coalescing), 0);
    EXPECT_EQ(get<ethtool_coalesce>(ETHTOOL_GCOALESCE).rx_coalesce_usecs, 77U);
    EXPECT_EQ(get<ethtool_coalesce>(ETHTOOL_GCOALESCE).rate_sample_interval, 3U);
}

TEST_F(NicModel, NegotiatesAgainOnlyWithAutonegotiation) {
    ethtool_value again{};
    again.cmd = ETHTOOL_NWAY_RST;
    EXPECT_EQ(run(&again), 0);
    EXPECT_EQ(host_.nic("eth2").negotiations, 1U);
    kxsim::Nic nic = host_.nic("eth2");
    nic.link_settings.autoneg = 0;
    host_.nic("eth2", nic);
    EXPECT_EQ(run(&again), EINVAL);
    EXPECT_EQ(host_.nic("eth2").negotiations, 1U);
}

TEST_F(NicModel, InterfaceThatIsDownHasNoLinkAndItsCountersStand) {
    host_.interface({.name = "eth9", .up = false});
    kxsim::Nic nic = host_.nic("eth9");
    nic.counters = {{"rx_frames", 5, 1}};
    host_.nic("eth9", nic);
    EXPECT_THAT(tool("eth9"), HasSubstr("Link detected: no"));
    tool("-S eth9");
    EXPECT_EQ(host_.nic("eth9").counters[0].value, 5U);
}

TEST_F(NicModel, CountersGrowByTheirStepsAfterEachReading) {
    give({{"rx_frames", 5, 3}, {"wrapping", 0xFFFFFFFFFFFFFFFF, 2}});
    EXPECT_THAT(tool("-S eth2"), HasSubstr("rx_frames: 5\n     wrapping: 18446744073709551615\n"));
    EXPECT_THAT(tool("-S eth2"), HasSubstr("rx_frames: 8\n     wrapping: 1\n"));
    EXPECT_EQ(host_.nic("eth2").counters[0].value, 11U);
}

TEST_F(NicModel, WritesNoMoreNamesAndValuesThanTheCallerHasRoomFor) {
    give({{"first", 1}, {"second", 2}, {"third", 3}});
    std::array<uint32_t, 3 + 4 * ETH_GSTRING_LEN / 4> strings{ETHTOOL_GSTRINGS, ETH_SS_STATS, 2};
    ASSERT_EQ(run(strings.data()), 0);
    EXPECT_EQ(strings[2], 3U);
    const char* const names = reinterpret_cast<const char*>(&strings[3]);
    EXPECT_STREQ(names + ETH_GSTRING_LEN, "second");
    EXPECT_STREQ(names + 2 * ETH_GSTRING_LEN, "");
    std::array<uint32_t, 2 + 2 * 4> values{ETHTOOL_GSTATS, 1};
    ASSERT_EQ(run(values.data()), 0);
    EXPECT_EQ(values[1], 3U);
    EXPECT_EQ(values[2], 1U);
    EXPECT_EQ(values[4], 0U);
}

TEST_F(NicModel, OnlyCountersHaveNames) {
    ethtool_gstrings head{};
    head.cmd = ETHTOOL_GSTRINGS;
    head.string_set = ETH_SS_TEST;
    EXPECT_EQ(run(&head), EOPNOTSUPP);
}

TEST_F(NicModel, GivesUntrueNumbersWhenItIsTold) {
    kxsim::Nic nic = host_.nic("eth2");
    nic.announced_counters = 1;
    nic.named_counters = 2;
    nic.valued_counters = 0xFFFFFFFF;
    host_.nic("eth2", nic);
    EXPECT_EQ(get<ethtool_drvinfo>(ETHTOOL_GDRVINFO).n_stats, 1U);
    EXPECT_EQ(get<ethtool_stats>(ETHTOOL_GSTATS).n_stats, 0xFFFFFFFFU);
    EXPECT_EQ(host_.nic("eth2").named_counters, 2U);
}

TEST_F(NicModel, AnyCommandCanBeRefusedWithAnyErrnoAndAllowedAgain) {
    for (const int error : {EPERM, EIO, ENODEV, EOPNOTSUPP}) {
        host_.refuse("eth2", ETHTOOL_STSO, error);
        EXPECT_EQ(set_value(ETHTOOL_STSO, 0), error);
        EXPECT_EQ(host_.nic("eth2").tso, 1U);
        EXPECT_EQ(set_value(ETHTOOL_SGSO, 1), 0);
    }
    host_.refuse("eth2", ETHTOOL_STSO, 0);
    EXPECT_EQ(set_value(ETHTOOL_STSO, 0), 0);
}

TEST_F(NicModel, CommandsThatNoDriverKnowsAreNotSupported) {
    EXPECT_EQ(set_value(0x7FFF, 0), EOPNOTSUPP);
}

TEST_F(NicModel, CounterThatDoesNotFitIsNoCounter) {
    EXPECT_THROW(give({{std::string(33, 'n'), 1}}), std::invalid_argument);
    EXPECT_THROW(
        give(std::vector<kxsim::NicCounter>(200000, kxsim::NicCounter{"n"})),
        std::invalid_argument);
    EXPECT_EQ(host_.nic("eth2").counters.size(), kxsim::default_counters().size());
}

TEST_F(NicModel, EthtoolProgramSeesAndSetsTheSameSettings) {
    EXPECT_THAT(tool("eth2"), HasSubstr("Speed: 10000Mb/s"));
    EXPECT_THAT(tool("-g eth2"), HasSubstr("RX Mini:\t512"));
    EXPECT_THAT(tool("-c eth2"), HasSubstr("rx-usecs: 5"));
    EXPECT_THAT(tool("-a eth2"), HasSubstr("Autonegotiate:\ton"));
    EXPECT_THAT(tool("-i eth2"), HasSubstr("bus-info: 0000:03:00.4"));
    EXPECT_EQ(tool("-G eth2 rx 333"), "");
    EXPECT_EQ(host_.nic("eth2").rings.rx_pending, 333U);
    EXPECT_EQ(tool("-C eth2 rx-usecs 21"), "");
    EXPECT_EQ(host_.nic("eth2").coalescing.rx_coalesce_usecs, 21U);
    EXPECT_EQ(tool("-A eth2 rx off"), "");
    EXPECT_EQ(host_.nic("eth2").pause.rx_pause, 0U);
    EXPECT_EQ(tool("-s eth2 msglvl 0x20"), "");
    EXPECT_EQ(host_.nic("eth2").message_level, 0x20U);
    EXPECT_EQ(tool("-r eth2"), "");
    EXPECT_EQ(host_.nic("eth2").negotiations, 1U);
}

}  // namespace
