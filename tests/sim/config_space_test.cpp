// Configuration space of an adapter: dwords, the capability list, the VPD dword protocol.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <kxsim/host.hpp>
#include <optional>
#include <string>

#include "support/output.hpp"

namespace {

constexpr char kLocation[] = "03:00.4";
constexpr char kConfig[] = "/sys/bus/pci/devices/0000:03:00.4/config";
constexpr uint32_t kVpd = 0xD0;
constexpr uint32_t kUntouched = 0xEEEEEEEE;

class ConfigSpace : public test::OutputTest {
protected:
    // Add the adapter to the bus, attach the process to the host, and read the adapter table.
    void start(const kxsim::Eeprom& eeprom = {}) {
        host_.adapter({.chip = "Q4", .location = kLocation, .eeprom = eeprom});
        attached_.emplace(host_.attach());
        ASSERT_EQ(scan_hbas(), 1);
    }

    // Change bytes of configuration space that no model simulates.
    void patch(std::size_t offset, std::string_view bytes) {
        std::string config = host_.read(kConfig);
        config.replace(offset, bytes.size(), bytes);
        host_.file(kConfig, config);
    }

    // Nothing is printed on standard output.
    template <class Call>
    auto run(const Call& call) {
        const auto result = OutputTest::run(call);
        EXPECT_EQ(printed_, "");
        return result;
    }

    static uint32_t dword(uint32_t offset, uint8_t adapter = 0) {
        uint32_t value = kUntouched;
        pci_config_read(adapter, offset, &value);
        return value;
    }

    kxsim::Host host_;

private:
    std::optional<kxsim::Attached> attached_;
};

// --- Dwords ---

TEST_F(ConfigSpace, DwordsAreLittleEndian) {
    start();
    EXPECT_EQ(dword(0), uint32_t{0x4410} << 16 | KESTRIX_PCI_VENDOR_ID);
}

TEST_F(ConfigSpace, EmptySlotsAreNeitherReadNorWritten) {
    start();
    for (const int adapter : {1, 19, 20, 255}) {
        EXPECT_EQ(dword(0, static_cast<uint8_t>(adapter)), kUntouched);
        pci_config_write(static_cast<uint8_t>(adapter), kVpd + 4, 1);
    }
    pci_config_read(0, 0, nullptr);
}

TEST_F(ConfigSpace, RefusedOffsetsReadAllOnesAndTakeNothing) {
    start();
    for (const uint32_t offset : {1U, 2U, 0x33U, 0x1000U, 0x7FFFFFFCU, 0x80000000U, 0xFFFFFFFCU}) {
        EXPECT_EQ(run([&] { return dword(offset); }), 0xFFFFFFFFU) << offset;
        pci_config_write(0, offset, 1);
    }
    EXPECT_EQ(told_, "");
}

TEST_F(ConfigSpace, AbsentFunctionReadsAllOnes) {
    start();
    host_.remove(kConfig);
    EXPECT_EQ(run([] { return dword(0); }), 0xFFFFFFFFU);
}

// --- Capabilities ---

TEST_F(ConfigSpace, CapabilityIsFoundAlongTheList) {
    start();
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x01); }), 0x40U);
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x05); }), 0x50U);
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x03); }), kVpd);
    EXPECT_EQ(told_, "");
}

TEST_F(ConfigSpace, MissingCapabilityIsToldOf) {
    start();
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x10); }), 0U);
    EXPECT_EQ(told_, "ERROR: Capability 10 not found.\n");
    EXPECT_EQ(run([] { return find_pci_capability(0, 0xAB); }), 0U);
    EXPECT_EQ(told_, "ERROR: Capability ab not found.\n");
    EXPECT_EQ(run([] { return find_pci_capability(1, 0x03); }), 0U);
    EXPECT_EQ(told_, "ERROR: Capability 03 not found.\n");
}

TEST_F(ConfigSpace, EmptyCapabilityListEnds) {
    start();
    patch(0x34, std::string(1, '\0'));
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x03); }), 0U);
}

TEST_F(ConfigSpace, CircularCapabilityListEnds) {
    start();
    patch(0x41, "\x40");  // the first one follows itself
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x03); }), 0U);
    EXPECT_EQ(told_, "ERROR: Capability 03 not found.\n");
    EXPECT_EQ(find_pci_capability(0, 0x01), 0x40U);
    patch(0x41, "\x50");
    patch(0x51, "\x40");  // two follow each other
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x03); }), 0U);
    EXPECT_EQ(find_pci_capability(0, 0x05), 0x50U);
}

TEST_F(ConfigSpace, ReservedBitsOfCapabilityOffsetsAreIgnored) {
    start();
    patch(0x34, "\x43");
    patch(0x41, "\x51");
    EXPECT_EQ(find_pci_capability(0, 0x05), 0x50U);
    patch(0x41, "\x03");
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x05); }), 0U);
}

TEST_F(ConfigSpace, AbsentFunctionHasNoCapability) {
    start();
    host_.remove(kConfig);
    EXPECT_EQ(run([] { return find_pci_capability(0, 0x03); }), 0U);
    EXPECT_EQ(told_, "ERROR: Capability 03 not found.\n");
}

TEST_F(ConfigSpace, LongestListIsWalkedToItsEnd) {
    start({.capability = false});
    // Forty-eight capabilities fill the space behind the header; the wanted one is the last.
    std::string list;
    for (unsigned offset = 0x40; offset < 0x100; offset += 4) {
        const unsigned next = offset + 4 < 0x100 ? offset + 4 : 0;
        list += std::string{static_cast<char>(next == 0 ? 0x11 : 0x09), static_cast<char>(next)};
        list += std::string(2, '\0');
    }
    patch(0x40, list);
    EXPECT_EQ(find_pci_capability(0, 0x11), 0xFCU);
}

// --- VPD ---

TEST_F(ConfigSpace, VpdDwordIsReadOnceTheFlagIsSet) {
    start({.content = {{0x404, "\x01\x02\x03\x04"}}, .polls = 3});
    uint32_t value = 0;
    const auto calls = host_.count([&] { vpd_read_dword(0, kVpd, 0x404, &value); });
    EXPECT_EQ(value, 0x04030201U);
    EXPECT_EQ(calls["write"], 1U);
    EXPECT_EQ(calls["read"], 4U + 1U) << "four polls, then the data";
    EXPECT_EQ(calls["usleep"], 0U);
}

TEST_F(ConfigSpace, VpdAddressKeepsBitsTwoToTwelve) {
    start({.content = {{0x1C00, "abcd"}, {0x7C00, "wxyz"}}});
    uint32_t value = 0;
    for (const uint32_t address : {0x7C00U, 0x1C00U, 0x1C03U, 0xFFFFFC00U}) {
        vpd_read_dword(0, kVpd, address, &value);
        EXPECT_EQ(value, 0x64636261U) << address;
    }
}

TEST_F(ConfigSpace, VpdOfNoCapabilityOrNoAdapterDoesNotWait) {
    start();
    uint32_t value = kUntouched;
    vpd_read_dword(0, 0, 0x400, &value);
    vpd_read_dword(1, kVpd, 0x400, &value);
    vpd_read_dword(0, kVpd, 0x400, nullptr);
    EXPECT_EQ(value, kUntouched);
}

TEST_F(ConfigSpace, VpdOfAnAbsentFunctionReadsAllOnes) {
    start();
    host_.remove(kConfig);
    uint32_t value = 0;
    vpd_read_dword(0, kVpd, 0x400, &value);
    EXPECT_EQ(value, 0xFFFFFFFFU);
}

TEST_F(ConfigSpace, VpdRequestThatCannotBeWrittenIsNotWaitedFor) {
    start({.content = {{0x400, "\x01\x02\x03\x04"}}});
    host_.fail({.call = "write", .error = EIO, .object = kConfig});
    uint32_t value = kUntouched;
    vpd_read_dword(0, kVpd, 0x400, &value);
    EXPECT_EQ(value, 0xFFFFFFFF);
    vpd_read_dword(0, kVpd, 0x400, &value);
    EXPECT_EQ(value, 0x04030201U) << "the next one is";
}

TEST_F(ConfigSpace, VpdDataRegisterKeepsTheProbe) {
    start();
    EXPECT_EQ(run([] { return vpd_rw_check(0, kVpd); }), 0);
    EXPECT_EQ(told_, "");
    EXPECT_EQ(dword(kVpd + 4), 0x00800000U);
}

TEST_F(ConfigSpace, VpdDataRegisterThatForgetsIsToldOf) {
    start({.loses_writes = true});
    EXPECT_EQ(run([] { return vpd_rw_check(0, kVpd); }), 1);
    EXPECT_EQ(told_, "ERROR: PCI configuration write/read check failed.\n");
    EXPECT_EQ(run([] { return vpd_rw_check(1, kVpd); }), 1);
}

TEST_F(ConfigSpace, VpdSetupFindsTheCapability) {
    start();
    uint32_t cap = kUntouched;
    EXPECT_EQ(run([&] { return vpd_setup(0, &cap); }), 0);
    EXPECT_EQ(cap, kVpd);
    EXPECT_EQ(told_, "");
}

TEST_F(ConfigSpace, VpdSetupWithoutTheCapabilityFails) {
    start({.capability = false});
    uint32_t cap = kUntouched;
    EXPECT_EQ(run([&] { return vpd_setup(0, &cap); }), KX_ADAPTER_INVALID);
    EXPECT_EQ(cap, 0U);
    EXPECT_EQ(told_, "ERROR: Capability 03 not found.\n");
    EXPECT_EQ(vpd_setup(0, nullptr), KX_ADAPTER_INVALID);
}

TEST_F(ConfigSpace, VpdSetupThatFailsItsCheckStillTellsTheOffset) {
    start({.loses_writes = true});
    uint32_t cap = kUntouched;
    EXPECT_EQ(run([&] { return vpd_setup(0, &cap); }), KX_ADAPTER_INVALID);
    EXPECT_EQ(cap, kVpd);
    EXPECT_EQ(told_, "ERROR: PCI configuration write/read check failed.\n");
}

// --- Delay ---

TEST_F(ConfigSpace, MsleepAsksForMicrosecondsAndZeroForNothing) {
    const auto attached = host_.attach();
    const auto calls = host_.count([] {
        msleep(0);
        msleep(3);
    });
    EXPECT_EQ(calls["usleep"], 1U);
    EXPECT_EQ(host_.slept_microseconds(), 3000U);
}

}  // namespace
