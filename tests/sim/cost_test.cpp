// The cost of calls: how often the library asks the host, depending on the size of the host. The
// counts are the same on every machine. (The tests of the flash operations count register
// accesses.)
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <cstdint>
#include <initializer_list>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/records.hpp"

namespace {

struct Size {
    unsigned interfaces;  // that are not ports
    unsigned ports;       // of the first of two adapters
    unsigned devices;     // PCI functions of other makers
};

constexpr unsigned kAdapters = 2;
constexpr unsigned kRequestsOfAPort = 13;
constexpr unsigned kControlFiles = 22;

struct SizedHost : kxsim::Host {
    explicit SizedHost(const Size& size) {
        module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "1"}}});
        kxsim::Adapter adapter_with_ports{.chip = "Q5", .location = "03:00.4"};
        for (unsigned i = 0; i < size.ports; ++i) {
            adapter_with_ports.ports.push_back({.name = "eth" + std::to_string(i)});
        }
        adapter(adapter_with_ports);
        adapter({.chip = "Q4", .location = "04:00.4"});
        toe_device({.index = 0, .interfaces = {"eth0"}});
        for (unsigned i = 0; i < size.interfaces; ++i) {
            interface({.name = "other" + std::to_string(i), .ipv4 = {"192.0.2.1/24"}});
        }
        for (unsigned i = 0; i < size.devices; ++i) {
            char location[16];
            std::snprintf(location, sizeof location, "%02x:%02x.0", 0x10 + i / 32, i % 32);
            pci_device({.location = location, .vendor_id = 0x8086, .device_id = 0x1533});
        }
    }
};

constexpr Size kSizes[] = {{0, 1, 0}, {3, 2, 5}, {40, 2, 5}, {3, 24, 5}, {3, 2, 70}};

std::string named(const Size& size) {
    return std::to_string(size.interfaces) + " interfaces, " + std::to_string(size.ports) +
           " ports, " + std::to_string(size.devices) + " devices";
}

// How often a call was made for objects whose names end with `rest`.
uint64_t made_on(const kxsim::Calls& calls, const std::string& call, const std::string& rest) {
    uint64_t count = 0;
    for (const kxsim::LoggedCall& made : calls.log()) {
        count += made.call == call && made.object.ends_with(rest) ? 1 : 0;
    }
    return count;
}

// The requests of every inventory, whatever it fills.
void expect_inventory(const kxsim::Calls& calls, const Size& size) {
    EXPECT_EQ(calls.on("open", "/proc/modules"), 1U);
    EXPECT_EQ(made_on(calls, "open", "/vendor"), size.devices + kAdapters);
    EXPECT_EQ(made_on(calls, "open", "/device"), size.devices + kAdapters);
    EXPECT_EQ(made_on(calls, "open", "/class"), kAdapters) << "of the maker's functions alone";
    EXPECT_EQ(made_on(calls, "open", "/irq"), kAdapters) << "of the maker's functions alone";
    EXPECT_EQ(made_on(calls, "open", "/resource"), 0U);
    EXPECT_EQ(made_on(calls, "open", "/config"), 0U);
    EXPECT_EQ(calls.on("opendir", "/sys/class/net"), 1U);
}

TEST(Cost, PortsAreAskedThirteenThingsEachAndOtherInterfacesOne) {
    for (const Size& size : kSizes) {
        SCOPED_TRACE(named(size));
        SizedHost host(size);
        const auto attached = host.attach();
        const auto calls = host.count([] { ASSERT_EQ(test::port_info("03:00.4").status, 0U); });
        expect_inventory(calls, size);
        EXPECT_EQ(calls["ioctl"], size.interfaces + size.ports + kRequestsOfAPort * size.ports);
        EXPECT_EQ(calls["socket"], 1 + size.ports) << "one for all of the discovery";
    }
}

TEST(Cost, AddressesOfAllPortsTakeOneListAndTwoReadsEach) {
    for (const Size& size : kSizes) {
        SCOPED_TRACE(named(size));
        SizedHost host(size);
        const auto attached = host.attach();
        const auto calls = host.count([] { ASSERT_EQ(test::port_info("03:00.4").status, 0U); });
        EXPECT_EQ(calls["getifaddrs"], 1U);
        for (const char* file : {"/address", "/mtu"}) {
            EXPECT_EQ(made_on(calls, "open", file), size.ports);
            EXPECT_EQ(made_on(calls, "read", file), size.ports) << "no second one for the end";
        }
    }
}

TEST(Cost, ParametersOfACardTakeOneReadPerFile) {
    for (const Size& size : kSizes) {
        SCOPED_TRACE(named(size));
        SizedHost host(size);
        const auto attached = host.attach();
        const auto calls = host.count([] { ASSERT_EQ(test::card_info().status, 0U); });
        expect_inventory(calls, size);
        EXPECT_EQ(calls["ioctl"], size.interfaces + size.ports) << "the discovery alone";
        EXPECT_EQ(calls["getifaddrs"], 0U);
        uint64_t opened = 0;
        uint64_t read = 0;
        for (const kxsim::LoggedCall& made : calls.log()) {
            const bool control_file = made.object.starts_with("/proc/sys/toe/toe0_tom/");
            opened += control_file && made.call == "open" ? 1 : 0;
            read += control_file && made.call == "read" ? 1 : 0;
        }
        EXPECT_EQ(opened, kControlFiles * kAdapters);
        EXPECT_EQ(read, kControlFiles * kAdapters);
    }
}

TEST(Cost, StatisticsTakeThreeRequestsPerPortHoweverManyCountersThereAre) {
    for (const unsigned counters : {1U, 100U, 3000U}) {
        kxsim::Host host;
        host.module({.name = "zfab4", .loaded = true});
        kxsim::Interface port{.name = "eth0"};
        port.nic.counters.clear();
        for (unsigned i = 0; i < counters; ++i) {
            port.nic.counters.push_back({.name = "counter_" + std::to_string(i)});
        }
        host.adapter({.chip = "Q5", .location = "03:00.4", .ports = {port}});
        const auto attached = host.attach();
        std::vector<char> buffer(std::size_t{counters} * KX_STAT_COPY);
        uint32_t length = 0;
        const auto calls =
            host.count([&] { ASSERT_EQ(GetPortStat("03:00.4", 1, buffer.data(), &length), 0U); });
        ASSERT_EQ(length, buffer.size());
        EXPECT_EQ(calls["ioctl"], 1 + 3U) << counters;
        EXPECT_EQ(calls["socket"], 2U) << counters;
    }
}

// --- The module tree -----------------------------------------------------------------------------

constexpr unsigned kDirectories = 30;

void add_other_modules(kxsim::Host& host) {
    for (unsigned i = 0; i < 4 * kDirectories; ++i) {
        host.module(
            {.name = "other" + std::to_string(i),
             .where = "kernel/d" + std::to_string(i % kDirectories)});
    }
}

TEST(Cost, ModulesThatAreNotInstalledTakeOneWalkForAll) {
    kxsim::Host host;
    add_other_modules(host);
    const auto attached = host.attach();
    const auto calls = host.count([] { EXPECT_EQ(test::driver_details().status, 62U); });
    EXPECT_EQ(calls["opendir"], 2 + kDirectories) << "the tree, kernel, and each directory";
    EXPECT_EQ(calls["mmap"], 0U);
    EXPECT_EQ(calls["stat"], 1U) << "is there an updates directory";
}

TEST(Cost, InstalledModulesTakeOneWalkAndOneMappingEach) {
    kxsim::Host host;
    add_other_modules(host);
    for (const char* module : {"zfab3", "zfab4", "zfab3m", "kxstor"}) {
        host.module({.name = module, .version = "1"});
    }
    host.module({.name = "bonding", .version = "1", .where = "kernel/d3"});
    const auto attached = host.attach();
    const auto calls = host.count([] { EXPECT_EQ(test::driver_details().records.size(), 5U); });
    EXPECT_EQ(calls["mmap"], 5U);
    EXPECT_EQ(calls["opendir"], 1 + 3 + kDirectories)
        << "updates for all; then the tree with updates, kernel, and each directory";
    EXPECT_EQ(calls.on("open", "/proc/modules"), 1U);
}

TEST(Cost, WalkEndsWithTheLastModule) {
    kxsim::Host host;
    for (const char* module :
         {"zfab3", "zfab4", "zfab3m", "toecore", "q3_tom", "q4_tom", "bonding", "kxiscsi_base",
          "kxiscsi_q4", "kxiscsi_q3", "iw_zfab3", "iw_zfab4", "kxstor"}) {
        host.module({.name = module, .version = "1", .where = "updates/kestrix"});
    }
    add_other_modules(host);
    const auto attached = host.attach();
    const auto calls = host.count([] { EXPECT_EQ(test::driver_details().records.size(), 13U); });
    EXPECT_EQ(calls["opendir"], 2U) << "updates and the directory in it";
}

}  // namespace
