// Port parameters and link state, as the drivers of the simulated host answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/port.h>
#include <linux/ethtool.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace {

using testing::ElementsAreArray;

constexpr unsigned char kUntouched = 0xEE;

struct Range {
    std::size_t offset;
    std::size_t width;
};

// One request of getPortParameters: its command, its number among requests with the same command,
// and the bytes of the port that only this request writes.
struct Request {
    const char* name;
    uint32_t command;
    unsigned nth;
    std::vector<Range> bytes;
};

const std::vector<Request>& requests() {
    static const std::vector<Request> kRequests{
        {"link_settings", 1, 1, {{1292, 1}, {1295, 1}, {1293, 2}, {1116, 4}, {1098, 2}}},
        {"link_again", 10, 1, {{1136, 1}}},
        {"message_level", 7, 1, {{1284, 4}}},
        {"link", 10, 2, {{1, 1}}},
        {"rx_checksum", 20, 1, {{1176, 2}}},
        {"tx_checksum", 22, 1, {{1174, 2}}},
        {"scatter_gather", 24, 1, {{1178, 2}}},
        {"tso", 30, 1, {{1282, 1}}},
        {"gso", 35, 1, {{1283, 1}}},
        {"wake_on_lan", 5, 1, {{538, 25}, {563, 25}}},
        {"coalescing", 14, 1, {{1288, 4}}},
        {"rings", 16, 1, {{1300, 16}, {1100, 16}}},
        {"pause", 18, 1, {{1316, 1}, {1180, 2}, {1182, 2}}},
    };
    return kRequests;
}

// Written whenever any request succeeded.
const std::vector<Range> kTexts{{449, 64}, {513, 25}, {588, 255}, {843, 255}, {1120, 16}};

using Bytes = std::array<unsigned char, sizeof(PortInfo)>;

Bytes bytes_of(const PortInfo& port) {
    Bytes bytes;
    std::memcpy(bytes.data(), &port, bytes.size());
    return bytes;
}

PortInfo untouched_port() {
    PortInfo port;
    std::memset(&port, kUntouched, sizeof port);
    return port;
}

void fill(Bytes& bytes, const std::vector<Range>& ranges, unsigned char value) {
    for (const Range& range : ranges) {
        std::memset(bytes.data() + range.offset, value, range.width);
    }
}

void copy(Bytes& to, const Bytes& from, const std::vector<Range>& ranges) {
    for (const Range& range : ranges) {
        std::memcpy(to.data() + range.offset, from.data() + range.offset, range.width);
    }
}

void expect_equal(const Bytes& got, const Bytes& expected) {
    for (std::size_t k = 0; k < got.size(); ++k) {
        ASSERT_EQ(+got[k], +expected[k]) << "byte " << k;
    }
}

uint32_t word_at(const PortInfo& port, std::size_t offset, std::size_t width = 4) {
    uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const char*>(&port) + offset, width);
    return value;
}

std::string text_at(const PortInfo& port, std::size_t offset) {
    return reinterpret_cast<const char*>(&port) + offset;
}

// Every field has a different value.
kxsim::Nic distinct_nic() {
    kxsim::Nic nic;
    nic.link_settings.supported = 0x40 | 0x80 | 0x400 | 0x1 | 0x1000;
    nic.link_settings.advertising = 0x40 | 0x2 | 0x1000;
    nic.link_settings.speed = 2501;
    nic.link_settings.duplex = 1;
    nic.link_settings.autoneg = 1;
    nic.link_settings.port = 5;
    nic.link_settings.phy_address = 17;
    nic.link_settings.transceiver = 1;
    nic.message_level = 0x80000123;
    nic.wake_on_lan.supported = 0x7F;
    nic.wake_on_lan.wolopts = 0x21;
    nic.coalescing.rx_coalesce_usecs = 0x01020304;
    nic.rings.rx_pending = 101;
    nic.rings.rx_mini_pending = 102;
    nic.rings.rx_jumbo_pending = 103;
    nic.rings.tx_pending = 104;
    nic.rings.rx_max_pending = 201;
    nic.rings.rx_mini_max_pending = 202;
    nic.rings.rx_jumbo_max_pending = 203;
    nic.rings.tx_max_pending = 204;
    return nic;
}

class PortParameters : public testing::Test {
protected:
    PortParameters() {
        host_.interface({.name = "eth2", .nic = distinct_nic()});
        attached_.emplace(host_.attach());
    }

    void change(const std::function<void(kxsim::Nic&)>& alter) {
        kxsim::Nic nic = host_.nic("eth2");
        alter(nic);
        host_.nic("eth2", nic);
    }

    PortInfo read() {
        PortInfo port = untouched_port();
        EXPECT_EQ(getPortParameters("eth2", &port), 0U);
        return port;
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
};

TEST_F(PortParameters, StoreEveryAnswerAtItsPlace) {
    const PortInfo port = read();
    EXPECT_EQ(word_at(port, 1292, 1), 1U);
    EXPECT_EQ(word_at(port, 1295, 1), 1U);
    EXPECT_EQ(word_at(port, 1293, 2), 2501U);
    EXPECT_EQ(word_at(port, 1116), 17U);
    EXPECT_EQ(word_at(port, 1098, 1), 1U);
    EXPECT_EQ(word_at(port, 1099, 1), 1U);
    EXPECT_EQ(word_at(port, 1136, 1), 1U);
    EXPECT_EQ(word_at(port, 1284), 0x80000123U);
    EXPECT_EQ(word_at(port, 1, 1), 1U);
    EXPECT_EQ(text_at(port, 1176), "1");
    EXPECT_EQ(text_at(port, 1174), "1");
    EXPECT_EQ(text_at(port, 1178), "1");
    EXPECT_EQ(word_at(port, 1282, 1), 1U);
    EXPECT_EQ(word_at(port, 1283, 1), 1U);
    EXPECT_EQ(text_at(port, 538), "pumbags");
    EXPECT_EQ(text_at(port, 563), "pg");
    EXPECT_EQ(word_at(port, 1288), 0x01020304U);
    for (std::size_t ring = 0; ring < 4; ++ring) {
        EXPECT_EQ(word_at(port, 1300 + 4 * ring), 101 + ring);
        EXPECT_EQ(word_at(port, 1100 + 4 * ring), 201 + ring);
    }
    EXPECT_EQ(word_at(port, 1316, 1), 1U);
    EXPECT_EQ(text_at(port, 1180), "1");
    EXPECT_EQ(text_at(port, 1182), "1");
    EXPECT_EQ(text_at(port, 449), "TP FIBRE ");
    EXPECT_EQ(text_at(port, 513), "Direct Attach Copper");
    EXPECT_EQ(text_at(port, 588), "10baseT/Half 10000baseT/Full");
    EXPECT_EQ(text_at(port, 843), "10baseT/Full 10000baseT/Full ");
    EXPECT_EQ(text_at(port, 1120), "External");
}

TEST_F(PortParameters, WriteNoByteBesideTheirFields) {
    Bytes expected = bytes_of(read());
    Bytes got = expected;
    expected.fill(kUntouched);
    copy(expected, got, kTexts);
    for (const Request& request : requests()) {
        copy(expected, got, request.bytes);
    }
    expect_equal(got, expected);
}

// Each switch in turn is off while the three others are on.
TEST_F(PortParameters, SwitchesAreNotMixedUp) {
    struct Switch {
        const char* name;
        uint32_t kxsim::NicSettings::*setting;
        std::size_t offset;
        bool is_text;
    };
    using Settings = kxsim::NicSettings;
    const Switch switches[] = {
        {"rx_checksum", &Settings::rx_checksum, 1176, true},
        {"tx_checksum", &Settings::tx_checksum, 1174, true},
        {"scatter_gather", &Settings::scatter_gather, 1178, true},
        {"tso", &Settings::tso, 1282, false},
        {"gso", &Settings::gso, 1283, false},
    };
    for (const Switch& off : switches) {
        change([&](kxsim::Nic& nic) { nic.*off.setting = 0; });
        const PortInfo port = read();
        for (const Switch& each : switches) {
            SCOPED_TRACE(std::string(off.name) + " off, " + each.name);
            const uint32_t on = each.name == off.name ? 0 : 1;
            EXPECT_EQ(word_at(port, each.offset, 1), each.is_text ? '0' + on : on);
        }
        change([&](kxsim::Nic& nic) { nic.*off.setting = 1; });
    }
}

TEST_F(PortParameters, SwitchesAreOneOrZeroWhateverTheDriverAnswers) {
    change([](kxsim::Nic& nic) {
        nic.rx_checksum = nic.tx_checksum = nic.scatter_gather = nic.tso = nic.gso = 0x100;
        nic.pause.autoneg = nic.pause.tx_pause = nic.pause.rx_pause = 0x200;
        nic.link_settings.autoneg = 2;
    });
    const PortInfo port = read();
    for (const std::size_t text : {1174, 1176, 1178, 1180, 1182}) {
        EXPECT_EQ(text_at(port, text), "1") << text;
    }
    for (const std::size_t byte : {1282, 1283, 1316, 1292}) {
        EXPECT_EQ(word_at(port, byte, 1), 1U) << byte;
    }
}

TEST_F(PortParameters, PauseDirectionsAreNotMixedUp) {
    change([](kxsim::Nic& nic) {
        nic.pause.autoneg = 0;
        nic.pause.tx_pause = 0;
    });
    PortInfo port = read();
    EXPECT_EQ(word_at(port, 1316, 1), 0U);
    EXPECT_EQ(text_at(port, 1180), "0");
    EXPECT_EQ(text_at(port, 1182), "1");
    change([](kxsim::Nic& nic) {
        nic.pause.tx_pause = 1;
        nic.pause.rx_pause = 0;
    });
    port = read();
    EXPECT_EQ(text_at(port, 1180), "1");
    EXPECT_EQ(text_at(port, 1182), "0");
}

TEST_F(PortParameters, AutonegotiationIsTakenFromThreePlaces) {
    for (int bits = 0; bits < 8; ++bits) {
        change([&](kxsim::Nic& nic) {
            nic.link_settings.autoneg = bits & 1;
            nic.link_settings.supported = (bits & 2) != 0 ? 0x40 : ~0x40U;
            nic.link_settings.advertising = (bits & 4) != 0 ? 0x40 : ~0x40U;
        });
        const PortInfo port = read();
        EXPECT_EQ(word_at(port, 1292, 1), bits & 1U);
        EXPECT_EQ(word_at(port, 1098, 1), bits >> 1 & 1U);
        EXPECT_EQ(word_at(port, 1099, 1), bits >> 2 & 1U);
    }
}

TEST_F(PortParameters, UnknownSpeedAndDuplexStayAsTheDriverGivesThem) {
    change([](kxsim::Nic& nic) {
        nic.link_settings.speed = 0xFFFF;
        nic.link_settings.speed_hi = 0xFFFF;
        nic.link_settings.duplex = 255;
    });
    const PortInfo port = read();
    EXPECT_EQ(word_at(port, 1293, 2), 0xFFFFU);
    EXPECT_EQ(word_at(port, 1295, 1), 255U);
}

TEST_F(PortParameters, EveryConnectorByteHasItsText) {
    const std::pair<uint8_t, const char*> rows[] = {
        {0, "Twisted Pair"},
        {1, "AUI"},
        {2, "MII"},
        {3, "FIBRE"},
        {4, "BNC"},
        {5, "Direct Attach Copper"},
        {239, "None"},
        {255, "Other"},
        {7, "Unknown! (7)"},
        {6, "Unknown! (6)"},
        {254, "Unknown! (254)"}};
    for (const auto& [byte, text] : rows) {
        change([&, number = byte](kxsim::Nic& nic) { nic.link_settings.port = number; });
        EXPECT_EQ(text_at(read(), 513), text);
    }
}

TEST_F(PortParameters, MasksWithoutAnyBitHaveFallbacksOfTheirOwn) {
    change([](kxsim::Nic& nic) {
        nic.link_settings.supported = 0;
        nic.link_settings.advertising = 0;
        nic.link_settings.transceiver = 2;
        nic.wake_on_lan.supported = 0;
        nic.wake_on_lan.wolopts = 0x80;
    });
    const PortInfo port = read();
    EXPECT_EQ(text_at(port, 449), "N/A");
    EXPECT_EQ(text_at(port, 588), "Not Reported");
    EXPECT_EQ(text_at(port, 843), "Not reported");
    EXPECT_EQ(text_at(port, 1120), "Unknown");
    EXPECT_EQ(text_at(port, 538), "d");
    EXPECT_EQ(text_at(port, 563), "");
}

TEST_F(PortParameters, EveryLinkModeStandsInItsOrderInBothLists) {
    change([](kxsim::Nic& nic) {
        nic.link_settings.supported = 0xFFFFFFFF;
        nic.link_settings.advertising = 0xFFFFFFFF;
    });
    const PortInfo port = read();
    const std::string slower =
        "10baseT/Half 10baseT/Full 100baseT/Half 100baseT/Full 1000baseT/Half 1000baseT/Full ";
    EXPECT_EQ(text_at(port, 588), slower + "2500baseX/Full10000baseT/Full");
    EXPECT_EQ(text_at(port, 843), slower + "2500baseX/Full 10000baseT/Full ");
    EXPECT_EQ(text_at(port, 449), "TP AUI BNC MII FIBRE ");
}

TEST_F(PortParameters, LinkIsTheLowByteOfTheAnswerAndFollowsTheDriver) {
    for (const uint32_t link : {0U, 1U, 2U, 0x1FFU, 0x100U}) {
        change([&](kxsim::Nic& nic) { nic.link = link; });
        const PortInfo port = read();
        EXPECT_EQ(word_at(port, 1, 1), link & 0xFF);
        EXPECT_EQ(word_at(port, 1136, 1), link & 0xFF);
    }
}

TEST_F(PortParameters, CostOneSocketAndThirteenRequestsInTheirOrder) {
    const kxsim::Calls calls = host_.count([&] { read(); });
    EXPECT_EQ(calls["socket"], 1U);
    std::vector<uint32_t> asked;
    for (const kxsim::LoggedCall& call : calls.log()) {
        if (call.call == "ioctl") {
            EXPECT_EQ(call.object, "eth2");
            asked.push_back(call.command);
        }
    }
    std::vector<uint32_t> expected;
    for (const Request& request : requests()) {
        expected.push_back(request.command);
    }
    EXPECT_THAT(asked, ElementsAreArray(expected));
}

// Thirteen runs; in each of them one request fails. The fields of that request keep their values,
// and all others are the same as without the failure. The texts of the link settings become empty
// when their request fails.
TEST_F(PortParameters, RefusedRequestLeavesItsFieldsAlone) {
    const Bytes complete = bytes_of(read());
    for (const Request& refused : requests()) {
        SCOPED_TRACE(refused.name);
        kxsim::FaultRule rule = host_.fail(
            {.call = "ioctl",
             .nth = refused.nth,
             .error = EOPNOTSUPP,
             .object = "eth2",
             .command = refused.command});
        Bytes expected = complete;
        fill(expected, refused.bytes, kUntouched);
        if (refused.command == ETHTOOL_GSET) {
            fill(expected, kTexts, 0);
        }
        expect_equal(bytes_of(read()), expected);
        EXPECT_EQ(rule.fired(), 1U);
        rule.remove();
    }
}

// Thirteen runs; in each of them only one request succeeds.
TEST_F(PortParameters, AnyOneRequestMakesTheCallSucceed) {
    const Bytes complete = bytes_of(read());
    for (const Request& answered : requests()) {
        SCOPED_TRACE(answered.name);
        std::vector<kxsim::FaultRule> rules;
        for (const Request& each : requests()) {
            if (&each != &answered) {
                rules.push_back(host_.fail(
                    {.call = "ioctl", .nth = each.nth, .error = EPERM, .command = each.command}));
            }
        }
        Bytes expected;
        expected.fill(kUntouched);
        fill(expected, kTexts, 0);
        if (answered.command == ETHTOOL_GSET) {
            copy(expected, complete, kTexts);
        }
        copy(expected, complete, answered.bytes);
        expect_equal(bytes_of(read()), expected);
        host_.clear_faults();
    }
}

TEST_F(PortParameters, NothingIsWrittenWhenEveryRequestIsRefused) {
    host_.fail({.call = "ioctl", .times = 0, .error = EBUSY});
    PortInfo port = untouched_port();
    EXPECT_EQ(getPortParameters("eth2", &port), 1U);
    expect_equal(bytes_of(port), bytes_of(untouched_port()));
}

TEST_F(PortParameters, NothingIsAskedWithoutASocket) {
    host_.fail({.call = "socket", .error = EMFILE});
    PortInfo port = untouched_port();
    const kxsim::Calls calls =
        host_.count([&] { EXPECT_EQ(getPortParameters("eth2", &port), 1U); });
    EXPECT_EQ(calls["ioctl"], 0U);
    expect_equal(bytes_of(port), bytes_of(untouched_port()));
}

TEST_F(PortParameters, UnknownInterfaceAndNullGiveNothing) {
    PortInfo port = untouched_port();
    EXPECT_EQ(getPortParameters("eth9", &port), 1U);
    EXPECT_EQ(getPortParameters("", &port), 1U);
    EXPECT_EQ(getPortParameters(nullptr, &port), 317U);
    EXPECT_EQ(getPortParameters("eth2", nullptr), 317U);
    expect_equal(bytes_of(port), bytes_of(untouched_port()));
}

TEST_F(PortParameters, NamesOf15CharactersArriveWhole) {
    host_.interface({.name = "enp130s0f4d1np3"});
    PortInfo port{};
    EXPECT_EQ(getPortParameters("enp130s0f4d1np3", &port), 0U);
    EXPECT_EQ(checkLinkStatus("enp130s0f4d1np3"), 1U);
    EXPECT_EQ(checkLinkStatus(std::string(300, 'e').c_str()), 0xFFFFFFFFU);
}

TEST_F(PortParameters, PrintNothing) {
    EXPECT_EQ(test::told([&] { EXPECT_EQ(test::printed([&] { read(); }), ""); }), "");
}

TEST_F(PortParameters, LinkStatusIsTheDriversValue) {
    for (const uint32_t link : {0U, 1U, 7U, 0x12345678U}) {
        change([&](kxsim::Nic& nic) { nic.link = link; });
        EXPECT_EQ(checkLinkStatus("eth2"), link);
    }
}

TEST_F(PortParameters, LinkStatusOfNoAnswerIsAllOnes) {
    EXPECT_EQ(checkLinkStatus("eth9"), 0xFFFFFFFFU);
    EXPECT_EQ(checkLinkStatus(nullptr), 0xFFFFFFFFU);
    host_.refuse("eth2", ETHTOOL_GLINK, EOPNOTSUPP);
    EXPECT_EQ(checkLinkStatus("eth2"), 0xFFFFFFFFU);
}

TEST_F(PortParameters, LinkStatusWithoutASocketReadsLikeALink) {
    change([](kxsim::Nic& nic) { nic.link = 0; });
    host_.fail({.call = "socket", .error = EMFILE});
    EXPECT_EQ(checkLinkStatus("eth2"), 1U);
    EXPECT_EQ(checkLinkStatus("eth2"), 0U);
}

TEST_F(PortParameters, LinkStatusAsksOnlyForTheLink) {
    const kxsim::Calls calls = host_.count([] { checkLinkStatus("eth2"); });
    EXPECT_EQ(calls["socket"], 1U);
    ASSERT_EQ(calls["ioctl"], 1U);
    EXPECT_EQ(calls.log().back().command, uint32_t{ETHTOOL_GLINK});
}

}  // namespace
