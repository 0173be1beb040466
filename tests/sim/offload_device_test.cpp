// Offload devices that appear and disappear while settings are applied: the library uses the index
// that the device has after it was brought up. The agent of this test brings it up itself.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <cstring>
#include <functional>
#include <kxsim/host.hpp>
#include <string>

namespace {

std::function<void(const std::string& interface_name)> bring_up;

}  // namespace

uint32_t zfabtool_devup(const char* interface_name) {
    bring_up(interface_name);
    return KX_SUCCESS;
}

namespace {

constexpr char kDevices[] = "/proc/net/offload/devices";

class OffloadDevice : public testing::Test {
protected:
    OffloadDevice() {
        host_.module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "0"}}});
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
        host_.file("/etc/sysctl.conf", "");
        for (const char* device : {"toe0", "toe5"}) {
            host_.file(file_of(device, "activated"), "-\n");
            host_.file(file_of(device, "mss"), "-\n");
        }
    }

    static std::string file_of(const std::string& device, const std::string& name) {
        return "/proc/sys/toe/" + device + "_tom/" + name;
    }
    [[nodiscard]] std::string both_of(const std::string& device) const {
        return host_.read(file_of(device, "activated")) + host_.read(file_of(device, "mss"));
    }

    uint32_t activate() {
        CardParams params{};
        params.activated = 1;
        params.mss = 1448;
        params.change_mask = KX_CARD_ACTIVATED | KX_CARD_MSS;
        const auto attached = host_.attach();
        std::string location = "03:00.4";
        return SetCardParam(&params, location.data());
    }

    kxsim::Host host_;
};

TEST_F(OffloadDevice, ThatAppearsOnlyOnceItIsUpIsTheOneThatIsSet) {
    host_.file(kDevices, "toe0            eth9\n");
    bring_up = [this](const std::string& interface_name) {
        EXPECT_EQ(interface_name, "eth2");
        host_.file(kDevices, "toe0            eth9\ntoe5            eth2\n");
    };
    EXPECT_EQ(activate(), 0U);
    EXPECT_EQ(both_of("toe5"), "1\n1448\n");
    EXPECT_EQ(both_of("toe0"), "-\n-\n");
    EXPECT_EQ(
        host_.read("/etc/sysctl.conf"), "toe.toe5_tom.activated = 1\ntoe.toe5_tom.mss = 1448\n");
}

TEST_F(OffloadDevice, ThatGetsAnotherNumberWhenItComesUpIsSetByThatOne) {
    host_.file(kDevices, "toe0            eth2\n");
    bring_up = [this](const std::string&) {
        host_.file(kDevices, "toe0            eth9\ntoe5            eth2\n");
    };
    EXPECT_EQ(activate(), 0U);
    EXPECT_EQ(both_of("toe5"), "1\n1448\n");
    EXPECT_EQ(both_of("toe0"), "-\n-\n");
}

TEST_F(OffloadDevice, ThatIsGoneOnceItWasBroughtUpIsNotSet) {
    host_.file(kDevices, "toe0            eth2\n");
    bring_up = [this](const std::string&) { host_.file(kDevices, "toe0            eth9\n"); };
    EXPECT_EQ(activate(), 70U);
    EXPECT_STREQ(GetErrStr(70), "Set TOE Parameter(s) failed for 03:00.4: Resource not available");
    EXPECT_EQ(both_of("toe0") + both_of("toe5"), "-\n-\n-\n-\n");
    EXPECT_EQ(host_.read("/etc/sysctl.conf"), "");
}

}  // namespace
