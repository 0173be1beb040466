// An agent replaces functions of the library: which arguments the functions receive, and the effect
// of their results and exceptions.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <functional>
#include <kxsim/host.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/port_on_host.hpp"

namespace {

std::optional<uint32_t> fill_status;         // instead of filling
std::function<void()> before_driver_params;  // what an agent does there
std::vector<std::string> saved_settings;     // "KEY INSTANCE"

template <class Function>
Function* library_function(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

uint32_t FillInfo_Kxcard(CardList** list, uint32_t mask) {
    static const auto next = library_function<uint32_t(CardList**, uint32_t)>("FillInfo_Kxcard");
    return fill_status ? *fill_status : next(list, mask);
}

uint32_t getDriverParams(CardParams* block, const char* module) {
    static const auto next =
        library_function<uint32_t(CardParams*, const char*)>("getDriverParams");
    if (before_driver_params) {
        before_driver_params();
    }
    return next(block, module);
}

int savePortParam(const char* key, const char*, uint32_t instance, int) {
    saved_settings.push_back(std::string(key) + " " + std::to_string(instance));
    return 0;
}

namespace {

using testing::ElementsAre;

class OwnFill : public testing::Test {
protected:
    OwnFill() {
        host_.module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "1"}}});
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
        attached_.emplace(host_.attach());
    }
    ~OwnFill() override {
        fill_status.reset();
        before_driver_params = nullptr;
        Close_Kxcard(list_);
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
    CardList* list_ = nullptr;
};

TEST_F(OwnFill, StatusPassesThroughOneByte) {
    fill_status = 0x141;
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list_, 0), 0x41U);
    EXPECT_TRUE(list_ == nullptr);
    fill_status = 0x100;
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list_, 0), 0U);
    EXPECT_TRUE(list_ != nullptr);
}

// Later calls must not use what this call had read from the host.
TEST_F(OwnFill, AnExceptionLeavesNoReadingBehind) {
    before_driver_params = [] { throw std::runtime_error("the agent's own"); };
    EXPECT_THROW(InitAndFillInfo_Kxcard(&list_, KX_FILL_CARD_PARAMS), std::runtime_error);
    before_driver_params = nullptr;
    host_.file("/proc/modules", "");
    EXPECT_EQ(lsmod("zfab4"), 0U);
    host_.file("/proc/modules", "zfab4 1 0 - Live 0x0\n");
    EXPECT_EQ(lsmod("zfab4"), 1U);
    Close_Kxcard(std::exchange(list_, nullptr));
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list_, KX_FILL_CARD_PARAMS), 0U);
}

class OwnRecording : public test::PortOnHost {
protected:
    OwnRecording() {
        settings_.port_instance = 7;
        saved_settings.clear();
    }
};

TEST_F(OwnRecording, OfEverySettingIsGivenThePortsInstanceButTheMtuOne) {
    test::put(settings_.mtu, "1500");
    EXPECT_EQ(set(setMTU, KX_PORT_MTU), 0);
    EXPECT_THAT(saved_settings, ElementsAre("mtu 1"));
    saved_settings.clear();
    test::put(settings_.rx_checksum, "1");
    test::put(settings_.tx_checksum, "1");
    test::put(settings_.scatter_gather, "1");
    constexpr uint32_t kOffloads = KX_PORT_RX_CHECKSUM | KX_PORT_TX_CHECKSUM |
                                   KX_PORT_SCATTER_GATHER | KX_PORT_TSO | KX_PORT_GSO;
    EXPECT_EQ(set(setOffloads, kOffloads), 0);
    EXPECT_THAT(
        saved_settings,
        ElementsAre("rxchksum 7", "txchksum 7", "scattergather 7", "tcpoffload 7", "gso 7"));
    saved_settings.clear();
    constexpr uint32_t kRings =
        KX_PORT_RING_RX | KX_PORT_RING_RX_MINI | KX_PORT_RING_RX_JUMBO | KX_PORT_RING_TX;
    EXPECT_EQ(set(setRingParams, kRings), 0);
    EXPECT_THAT(
        saved_settings, ElementsAre("ring_tx 7", "ring_rx 7", "ring_rx_mini 7", "ring_rx_jumbo 7"));
    saved_settings.clear();
    settings_.autoneg = 1;
    EXPECT_EQ(set(setLinkSettings, KX_PORT_LINK | KX_PORT_ADVERTISE | KX_PORT_MESSAGE_LEVEL), 0);
    EXPECT_THAT(
        saved_settings,
        ElementsAre("link_autoneg 7", "speed 7", "duplex 7", "advertise 7", "messageLevel 7"));
    saved_settings.clear();
    test::put(settings_.tx_pause, "1");
    test::put(settings_.rx_pause, "1");
    EXPECT_EQ(set(setPauseParams, KX_PORT_PAUSE_AUTONEG | KX_PORT_TX_PAUSE | KX_PORT_RX_PAUSE), 0);
    EXPECT_THAT(saved_settings, ElementsAre("pauseautoneg 7", "txpfsupport 7", "rxpfsupport 7"));
    saved_settings.clear();
    EXPECT_EQ(set(setCoalesce, KX_PORT_RX_USECS), 0);
    EXPECT_THAT(saved_settings, ElementsAre("rxusecs 7"));
}

}  // namespace
