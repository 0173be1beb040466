// The cheap count of adapters.
#include <gtest/gtest.h>
#include <kxlinhw/statistics.h>

#include <cerrno>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

namespace {

struct Bus {
    const char* name;
    std::vector<std::string> locations;  // of the maker's functions, in libpci's order
    uint32_t count;
};

class CardCount : public testing::TestWithParam<Bus> {};

TEST_P(CardCount, CountsWhenBusAndDeviceBothDiffer) {
    kxsim::Host host;
    host.pci_device({.location = "00:00.0", .vendor_id = 0x8086, .device_id = 0x1237});
    int foreign = 0;
    for (const std::string& location : GetParam().locations) {
        host.pci_device(
            {.location = location, .vendor_id = KESTRIX_PCI_VENDOR_ID, .device_id = 0x5410});
        host.pci_device(
            {.location = "9" + std::to_string(foreign++) + location.substr(2),
             .vendor_id = 0x8086,
             .device_id = 0x1533});
    }
    const auto attached = host.attach();
    EXPECT_EQ(getCardCount(), GetParam().count);
}

INSTANTIATE_TEST_SUITE_P(
    Buses, CardCount,
    testing::Values(
        Bus{"none", {}, 0}, Bus{"one", {"03:00.0"}, 1},
        Bus{"functions_of_one", {"03:00.0", "03:00.4", "03:00.7"}, 1},
        Bus{"two_on_one_bus", {"03:00.0", "03:01.0"}, 1},
        Bus{"same_device_number_on_two_buses", {"03:00.0", "04:00.0"}, 1},
        Bus{"both_differ", {"03:00.0", "04:01.0"}, 2},
        Bus{"back_and_forth", {"03:00.0", "04:01.0", "05:00.0", "05:01.0", "06:02.0"}, 4},
        Bus{"last_is_kept_of_those_not_counted", {"03:00.0", "03:01.0", "04:00.0"}, 2}),
    [](const auto& bus) { return bus.param.name; });

TEST(CardCountWithoutABus, IsZero) {
    kxsim::Host host;
    host.pci_device(
        {.location = "03:00.0", .vendor_id = KESTRIX_PCI_VENDOR_ID, .device_id = 0x5410});
    host.fail({.call = "opendir", .times = 0, .error = EACCES, .object = "/sys/bus/pci/devices*"});
    const auto attached = host.attach();
    EXPECT_EQ(getCardCount(), 0U);
}

}  // namespace
