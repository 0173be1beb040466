// The register window: where it is mapped, who may use it, and how it is given back.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "support/closed_streams.hpp"
#include "support/output.hpp"

extern "C" {
#include <pci/pci.h>
}

namespace {

// /dev/mem as the library sees it: every call that concerns it is recorded and answered here.
struct Mapping {
    void* address;
    std::size_t length;
    int protection;
    int flags;
    off_t offset;
    friend bool operator==(const Mapping&, const Mapping&) = default;
};

struct DevMem {
    std::vector<int> opened;  // descriptors handed out
    std::vector<int> closed;  // any descriptors
    std::vector<int> open_modes;
    std::vector<Mapping> mapped;
    std::vector<std::pair<void*, std::size_t>> unmapped;
    bool refuse_open = false;
    int refuse_mapping = 0;  // errno
    bool watching = false;
} dev_mem;

alignas(4096) std::array<uint32_t, 0x20000 / 4> window;

}  // namespace

extern "C" {

KX_EXPORT int open(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(rest, unsigned) : 0;
    va_end(rest);
    if (dev_mem.watching && std::strcmp(path, "/dev/mem") == 0) {
        dev_mem.open_modes.push_back(flags & O_ACCMODE);
        if (dev_mem.refuse_open) {
            errno = EACCES;
            return -1;
        }
        path = "/dev/null";
        const auto descriptor = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
        dev_mem.opened.push_back(descriptor);
        return descriptor;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

KX_EXPORT int close(int descriptor) {
    if (dev_mem.watching) {
        dev_mem.closed.push_back(descriptor);
    }
    return static_cast<int>(syscall(SYS_close, descriptor));
}

KX_EXPORT void* mmap(
    void* address, size_t length, int protection, int flags, int descriptor, off_t offset) {
    if (dev_mem.watching && !dev_mem.opened.empty() && descriptor == dev_mem.opened.back()) {
        dev_mem.mapped.push_back({address, length, protection, flags, offset});
        if (dev_mem.refuse_mapping != 0) {
            errno = dev_mem.refuse_mapping;
            return MAP_FAILED;
        }
        return window.data();
    }
    return reinterpret_cast<void*>(
        syscall(SYS_mmap, address, length, protection, flags, descriptor, offset));
}

KX_EXPORT int munmap(void* address, size_t length) noexcept {
    if (dev_mem.watching) {
        dev_mem.unmapped.emplace_back(address, length);
    }
    return static_cast<int>(syscall(SYS_munmap, address, length));
}

}  // extern "C"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class RegisterWindow : public test::OutputTest {
protected:
    RegisterWindow() {
        window.fill(0);
        dev_mem = {};
        kestrix_hbas[0] = &first_;
        kestrix_hbas[3] = &second_;
        first_.base_addr[0] = 0xFE000000;
        second_.base_addr[0] = 0xFD000000;
        memfd = 0;
        mmapd_addr = 0;
        mmapd_adapter = 0;
        mmapd_len = 0;
    }
    ~RegisterWindow() override {
        disconnect_from_hba(0);
        kestrix_hbas[0] = nullptr;
        kestrix_hbas[3] = nullptr;
    }

    // Run a step with /dev/mem watched; keeps what it wrote to standard error.
    template <class Body>
    int32_t run(Body body) {
        const int32_t result = OutputTest::run([&] {
            dev_mem.watching = true;
            const int32_t given = body();
            dev_mem.watching = false;
            return given;
        });
        EXPECT_EQ(printed_, "");
        return result;
    }

    int32_t connect(uint8_t adapter = 0) {
        return run([=] { return connect_to_hba(adapter); });
    }
    int32_t connect_q4(uint8_t adapter = 0) {
        return run([=] { return connect_to_hba_Q4(adapter); });
    }
    void disconnect(uint8_t adapter = 0) {
        run([=] {
            disconnect_from_hba(adapter);
            return 0;
        });
    }

    void place(pciaddr_t bar) { first_.base_addr[0] = bar; }

private:
    pci_dev first_{};
    pci_dev second_{};
};

TEST_F(RegisterWindow, Q4WindowIs128KiBAtItsBar) {
    EXPECT_EQ(connect_q4(), 0);
    EXPECT_EQ(told_, "");
    EXPECT_THAT(dev_mem.open_modes, ElementsAre(O_RDWR));
    EXPECT_THAT(
        dev_mem.mapped,
        ElementsAre(Mapping{nullptr, 0x20000, PROT_READ | PROT_WRITE, MAP_SHARED, 0xFE000000}));
    EXPECT_EQ(mmapd_addr, reinterpret_cast<uint64_t>(window.data()));
    EXPECT_EQ(mmapd_adapter, 0);
    EXPECT_EQ(mmapd_len, 0x20000U);
    EXPECT_EQ(memfd, dev_mem.opened.at(0));
}

TEST_F(RegisterWindow, Q3WindowIs4KiBAtItsBar) {
    EXPECT_EQ(connect(3), 0);
    EXPECT_THAT(
        dev_mem.mapped,
        ElementsAre(Mapping{nullptr, 0x1000, PROT_READ | PROT_WRITE, MAP_SHARED, 0xFD000000}));
    EXPECT_EQ(mmapd_adapter, 3);
    EXPECT_EQ(mmapd_len, 0x1000U);
}

TEST_F(RegisterWindow, PlaceIsThePageOfTheFlashRegisterIn32Bits) {
    struct Row {
        pciaddr_t bar;
        off_t q3;
        off_t q4;
    };
    for (const Row& row :
         {Row{0xFE00000C, 0xFE000000, 0xFE000000},    // flag bits
          Row{0x12FE000004, 0xFE000000, 0xFE000000},  // above 4 GiB: cut
          Row{0xFE007000, 0xFE007000, 0xFE020000},    // the register's page, not the BAR's
          Row{0xFE000924, 0xFE001000, 0xFE000000},    // the register on the next page
          Row{0xFFFFF924, 0, 0},                      // wraps around
          Row{0x1000, 0x1000, 0}}) {
        dev_mem = {};
        place(row.bar);
        EXPECT_EQ(connect(), 0);
        disconnect();
        EXPECT_EQ(connect_q4(), 0);
        disconnect();
        EXPECT_EQ(dev_mem.mapped.at(0).offset, row.q3) << std::hex << row.bar;
        EXPECT_EQ(dev_mem.mapped.at(1).offset, row.q4) << std::hex << row.bar;
        EXPECT_EQ(dev_mem.mapped.at(0).length, 0x1000U);
        EXPECT_EQ(dev_mem.mapped.at(1).length, 0x20000U);
    }
}

TEST_F(RegisterWindow, TopPageIsNotMapped) {
    for (const pciaddr_t bar : {0xFFFFF000ULL, 0xFFFFE924ULL, 0xFFFFF923ULL}) {
        place(bar);
        EXPECT_EQ(connect(), KX_ADAPTER_INVALID);
        EXPECT_EQ(told_, "Sorry, cannot map the top 4K page\n");
    }
    EXPECT_THAT(dev_mem.open_modes, IsEmpty());
    place(0xFFFFE000);
    EXPECT_EQ(connect(), 0);
}

TEST_F(RegisterWindow, WindowThatEndsAt4GiBIsNotMapped) {
    for (const pciaddr_t bar : {0xFFFE0000ULL, 0xFFFC6C04ULL, 0xFFFE6C03ULL}) {
        place(bar);
        EXPECT_EQ(connect_q4(), KX_ADAPTER_INVALID);
        EXPECT_EQ(told_, "Aligned addr+len exceeds top of address space\n");
    }
    EXPECT_THAT(dev_mem.open_modes, IsEmpty());
    place(0xFFFC0000);
    EXPECT_EQ(connect_q4(), 0);
}

TEST_F(RegisterWindow, RefusedOpenIsToldAndChangesNoWindow) {
    dev_mem.refuse_open = true;
    EXPECT_EQ(connect_q4(), KX_ADAPTER_INVALID);
    EXPECT_EQ(told_, "open /dev/mem failed!");
    EXPECT_EQ(memfd, -1);
    EXPECT_EQ(mmapd_addr, 0U);
    disconnect();
    EXPECT_THAT(dev_mem.closed, IsEmpty());
}

TEST_F(RegisterWindow, RefusedMappingIsToldAndClosesTheDescriptorOnce) {
    dev_mem.refuse_mapping = EPERM;
    EXPECT_EQ(connect(), KX_ADAPTER_INVALID);
    EXPECT_EQ(told_, "mmap() failed: Operation not permitted\n");
    EXPECT_EQ(memfd, dev_mem.opened.at(0));
    EXPECT_THAT(dev_mem.closed, ElementsAre(memfd));
    EXPECT_EQ(mmapd_addr, 0U);
    const int mine = fcntl(STDERR_FILENO, F_DUPFD, memfd);  // the agent now owns this number
    ASSERT_EQ(mine, memfd);
    disconnect();
    EXPECT_THAT(dev_mem.closed, ElementsAre(memfd)) << "not again";
    EXPECT_EQ(close(mine), 0);
}

TEST_F(RegisterWindow, RefusedMappingsOfAnAgentThatPollsUseUpNoDescriptors) {
    dev_mem.refuse_mapping = EPERM;
    ASSERT_EQ(connect(), KX_ADAPTER_INVALID);
    const int32_t first = memfd;
    for (int poll = 0; poll < 1000; ++poll) {
        ASSERT_EQ(connect_q4(3), KX_ADAPTER_INVALID);
    }
    EXPECT_EQ(memfd, first);
    EXPECT_EQ(dev_mem.closed.size(), dev_mem.opened.size());
}

TEST_F(RegisterWindow, RefusedMappingLeavesTheWindowThatIsOpen) {
    ASSERT_EQ(connect(), 0);
    dev_mem.refuse_mapping = EPERM;
    EXPECT_EQ(connect(3), KX_ADAPTER_INVALID);
    EXPECT_EQ(mmapd_addr, reinterpret_cast<uint64_t>(window.data()));
    EXPECT_EQ(mmapd_adapter, 0);
    EXPECT_THAT(dev_mem.closed, ElementsAre(dev_mem.opened.at(1)));
    disconnect();
    close(dev_mem.opened.at(0));
}

TEST_F(RegisterWindow, DescriptorOfMemoryIsNoStandardStream) {
    for (const unsigned closed : test::kClosedStreams) {
        EXPECT_EQ(
            test::without_streams(
                closed,
                [] {
                    dev_mem.watching = true;
                    const bool open = connect_to_hba_Q4(0) == 0;
                    const bool above = memfd > STDERR_FILENO && memfd == dev_mem.opened.at(0);
                    return std::string(open && above ? "" : "a stream");
                }),
            "")
            << test::streams_text(closed);
    }
}

TEST_F(RegisterWindow, HostsDescriptorWithTheNumberOfTheOneClosedLastStaysOpen) {
    ASSERT_EQ(connect(), 0);
    disconnect();
    const int lent = fcntl(STDERR_FILENO, F_DUPFD, memfd);
    ASSERT_EQ(lent, memfd);
    memfd = lent;
    mmapd_addr = reinterpret_cast<uint64_t>(window.data());
    dev_mem.closed.clear();
    disconnect();
    EXPECT_THAT(dev_mem.closed, IsEmpty());
    EXPECT_EQ(mmapd_addr, 0U);
    EXPECT_EQ(close(lent), 0) << "the host closes it";
}

TEST_F(RegisterWindow, IndexesWithoutAnAdapterAreRefused) {
    for (const uint8_t adapter : std::array<uint8_t, 4>{1, 19, 20, 255}) {
        EXPECT_EQ(connect(adapter), KX_ADAPTER_INVALID);
        EXPECT_EQ(connect_q4(adapter), KX_ADAPTER_INVALID);
    }
    EXPECT_THAT(dev_mem.open_modes, IsEmpty());
}

TEST_F(RegisterWindow, DisconnectLeavesTheMappingAndClosesTheDescriptor) {
    ASSERT_EQ(connect_q4(3), 0);
    const int32_t descriptor = memfd;
    disconnect(3);
    EXPECT_THAT(dev_mem.unmapped, ElementsAre(Pair(nullptr, 0x20000U)));
    EXPECT_THAT(dev_mem.closed, ElementsAre(descriptor));
    EXPECT_EQ(mmapd_addr, 0U);
    EXPECT_EQ(memfd, descriptor);
    EXPECT_EQ(mmapd_adapter, 3);
    EXPECT_EQ(mmapd_len, 0x20000U);
}

TEST_F(RegisterWindow, DisconnectOfAnotherAdapterClosesTheWindowAllTheSame) {
    ASSERT_EQ(connect(3), 0);
    disconnect(0);
    EXPECT_THAT(dev_mem.unmapped, IsEmpty());
    EXPECT_THAT(dev_mem.closed, ElementsAre(memfd));
    EXPECT_EQ(mmapd_addr, 0U);
}

TEST_F(RegisterWindow, StaleDescriptorNumberIsNeverClosedAgain) {
    ASSERT_EQ(connect(), 0);
    disconnect();
    const int mine = fcntl(STDERR_FILENO, F_DUPFD, memfd);  // the agent now owns this number
    ASSERT_EQ(mine, memfd);
    dev_mem.closed.clear();
    disconnect();
    disconnect(3);
    EXPECT_THAT(dev_mem.closed, IsEmpty());
    EXPECT_EQ(close(mine), 0);
}

TEST_F(RegisterWindow, ThatWasNeverOpenedLeavesStandardInputOpen) {
    run([] { return cleanup_and_exit(0); });
    EXPECT_THAT(dev_mem.unmapped, IsEmpty());
    disconnect();
    EXPECT_THAT(dev_mem.closed, IsEmpty());
}

TEST_F(RegisterWindow, CleaningUpClosesIt) {
    ASSERT_EQ(connect_q4(3), 0);
    run([] { return cleanup_and_exit(0); });
    EXPECT_THAT(dev_mem.unmapped, ElementsAre(Pair(nullptr, 0x20000U)));
    EXPECT_THAT(dev_mem.closed, ElementsAre(memfd));
    EXPECT_EQ(mmapd_addr, 0U);
}

TEST_F(RegisterWindow, DescriptorThatAHostPutIntoMemfdIsClosedWithTheWindow) {
    memfd = open("/dev/null", O_RDWR);
    disconnect();
    EXPECT_THAT(dev_mem.closed, ElementsAre(memfd));
    dev_mem.closed.clear();
    const int other = open("/dev/null", O_RDWR);
    memfd = fcntl(other, F_DUPFD, other + 1);  // not the previous number
    run([] { return cleanup_and_exit(0); });
    EXPECT_THAT(dev_mem.closed, ElementsAre(memfd));
    EXPECT_EQ(close(other), 0);
}

TEST_F(RegisterWindow, SecondConnectLeavesTheFirstDescriptorOpen) {
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(connect(3), 0);
    disconnect(3);
    EXPECT_THAT(dev_mem.closed, ElementsAre(dev_mem.opened.at(1)));
    EXPECT_EQ(fcntl(dev_mem.opened.at(0), F_GETFD), FD_CLOEXEC);
    close(dev_mem.opened.at(0));
}

// --- Registers ---

TEST_F(RegisterWindow, RegistersAreSingleWordsAtTheirOffset) {
    ASSERT_EQ(connect_q4(), 0);
    window.at(0x193F8 / 4) = 0x11223344;
    EXPECT_EQ(q4_read_reg(0, 0x193F8), 0x11223344U);
    EXPECT_EQ(q3_read_reg(0, 0x193F8), 0x11223344);
    q4_write_reg(0, 0x1FFFC, 0xAABBCCDD);
    q3_write_reg(0, 0, 0x01020304);
    EXPECT_EQ(window.at(0x1FFFC / 4), 0xAABBCCDDU);
    EXPECT_EQ(window.at(0), 0x01020304U);
}

TEST_F(RegisterWindow, OtherAdaptersReadZeroAndOnlyQ4Writes) {
    ASSERT_EQ(connect_q4(), 0);
    window.at(2) = 7;
    EXPECT_EQ(q4_read_reg(3, 8), 0U);
    EXPECT_EQ(q3_read_reg(3, 8), 0);
    q3_write_reg(3, 8, 9);
    EXPECT_EQ(window.at(2), 7U);
    q4_write_reg(3, 8, 9);
    EXPECT_EQ(window.at(2), 9U);
}

TEST_F(RegisterWindow, ClosedWindowReadsZeroAndTakesNothing) {
    EXPECT_EQ(q4_read_reg(0, 0x193FC), 0U);
    EXPECT_EQ(q3_read_reg(0, 0x6DC), 0);
    q4_write_reg(0, 0x193FC, 1);
    q3_write_reg(0, 0x6DC, 1);
}

TEST_F(RegisterWindow, OffsetsPastTheWindowReadZeroAndTakeNothing) {
    ASSERT_EQ(connect(), 0);
    window.fill(7);
    for (const uint32_t offset : {0xFFDU, 0x1000U, 0x193FCU, 0xFFFFFFFCU}) {
        EXPECT_EQ(q4_read_reg(0, offset), 0U);
        EXPECT_EQ(q3_read_reg(0, offset), 0);
        q4_write_reg(0, offset, 9);
        q3_write_reg(0, offset, 9);
    }
    EXPECT_EQ(q4_read_reg(0, 0xFFC), 7U);
    EXPECT_THAT(window, testing::Each(7U));
}

TEST_F(RegisterWindow, MemoryThatAHostLendsIsNotBoundByTheWindowBefore) {
    ASSERT_EQ(connect(), 0);
    disconnect();
    mmapd_addr = reinterpret_cast<uint64_t>(window.data());
    q4_write_reg(0, 0x193F8, 5);
    EXPECT_EQ(q4_read_reg(0, 0x193F8), 5U);
    EXPECT_EQ(mmapd_len, 0x1000U);
}

TEST_F(RegisterWindow, LoadsAndStoresAreThoseOfTheProcess) {
    uint32_t words[2] = {0x04030201, 0x08070605};
    const auto address = reinterpret_cast<uint64_t>(words);
    EXPECT_EQ(readl(address), 0x04030201U);
    EXPECT_EQ(readl(address + 1), 0x05040302U);
    writel(0x11111111, address);
    writel_Q4(0x22222222, address + 4);
    EXPECT_THAT(words, ElementsAre(0x11111111U, 0x22222222U));
}

}  // namespace
