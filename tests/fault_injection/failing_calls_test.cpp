// Every call that an exported function makes fails once: no crash, hang or exception, and nothing
// stays open.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fault_injection/entry_points.hpp"
#include "fault_injection/failure.hpp"
#include "fault_injection/fired_kinds.hpp"

namespace {

using test::EntryPoint;
using test::Failure;

// A run that takes longer than this many seconds hangs; SIGALRM ends the process then.
constexpr unsigned kPatience = 120;

// Of calls that are made many times in a row, the first ones and some later ones fail; more of them
// with KX_THOROUGH set (tests/fault_injection/faults.sh), which an EEPROM of thousands of dwords
// makes long.
constexpr unsigned kEach = 3;
constexpr unsigned kEachThorough = 100;
unsigned next_position(unsigned nth) {
    static const bool thorough = std::getenv("KX_THOROUGH") != nullptr;
    if (thorough) {
        return nth < kEachThorough ? nth + 1 : nth + nth / 8;
    }
    return nth < kEach ? nth + 1 : nth * 2;
}

// Under a sanitizer some functions meet some of the failures, each once. (All of them are called by
// the other tests.)
std::vector<EntryPoint> struck_functions() {
    constexpr std::size_t kEvery = test::kSanitized ? 4 : 1;
    std::vector<EntryPoint> some;
    for (std::size_t k = 0; k < test::entry_points().size(); k += kEvery) {
        some.push_back(test::entry_points()[k]);
    }
    return some;
}
constexpr std::size_t kMeets = test::kSanitized ? 8 : 1;
bool meets(const EntryPoint& entry, std::size_t failure) {
    return (entry.name.size() + failure) % kMeets == 0;
}

// Exported names that are not functions.
const std::set<std::string> kVariables = {
    "ErrStr",
    "errStr",
    "g_err",
    "g_MXdataBuffer",
    "g_MXdataBufferOffset",
    "g_MXdataBufferSize",
    "g_KestrixAdapterInfo",
    "g_KestrixAdapters",
    "g_adapter_count",
    "kestrix_hbas",
    "memfd",
    "mmapd_adapter",
    "mmapd_addr",
    "mmapd_len",
    "modfound",
    "pci_access_p",
};

TEST(EveryExportedFunction, HasACaller) {
    std::set<std::string> called;
    for (const EntryPoint& entry : test::entry_points()) {
        EXPECT_TRUE(called.emplace(entry.name).second) << entry.name << " stands there twice";
    }
    std::ifstream list(KX_EXPORTS_FILE);
    std::size_t functions = 0;
    for (std::string name; std::getline(list, name);) {
        if (name.empty() || name.starts_with("#") || name.starts_with("_Z") ||
            kVariables.contains(name)) {
            continue;
        }
        ++functions;
        EXPECT_TRUE(called.contains(name)) << name << " has no caller in entry_points.cpp";
    }
    EXPECT_EQ(functions, called.size()) << "callers of functions that are not exported";
}

// The failures of each kind of call that the library or the libraries below it make. Allocations of
// libpci are left out: it ends the process when its first one fails, before the library can replace
// its error function.
constexpr Failure kFailures[] = {
    {"access", EACCES},
    {"calloc", ENOMEM, "libkxlinhw"},
    {"chmod", EPERM},
    {"fclose", EIO},
    {"fflush", ENOSPC},
    {"fopen", EACCES},
    {"fopen", EMFILE},
    {"fsync", EIO},
    {"getifaddrs", ENOMEM},
    {"ioctl", EIO},
    {"ioctl", EOPNOTSUPP},
    {"malloc", ENOMEM, "libkxlinhw"},
    {"malloc", ENOMEM, "libstdc++"},
    {"malloc", ENOMEM, "libc.so"},
    {"mmap", ENOMEM},
    {"open", EACCES},
    {"open", EMFILE},
    {"opendir", EACCES},
    {"read", EIO},
    {"read", EINTR},
    {"read", 0, "", 1},
    {"readdir", EIO},
    {"readlink", EIO},
    {"realloc", ENOMEM, "libkxlinhw"},
    {"realloc", ENOMEM, "libc.so"},
    {"rename", EIO},
    {"rename", ENOSPC},
    {"socket", EMFILE},
    {"stat", EACCES},
    {"unlink", EACCES},
    {"usleep", EINTR},
    {"write", ENOSPC},
    {"write", EINTR},
    {"write", EIO},
    {"write", 0, "", 1},
};

class EntryPointTest : public testing::TestWithParam<EntryPoint> {
protected:
    void SetUp() override { alarm(kPatience); }
    void TearDown() override { alarm(0); }

    // Run the call with one failure; false when no call matched the failure.
    bool run(const Failure& failure, unsigned nth) {
        alarm(kPatience);
        test::Lab::prepare();
        const test::Held before = test::held(lab_.host());
        kxsim::FaultRule rule = lab_.host().fail(test::fault_of(failure, nth));
        bool threw = false;
        {
            const test::Silence silence;
            lab_.host().count([&] {
                try {
                    GetParam().call();
                } catch (...) {
                    threw = true;
                }
            });
        }
        const bool fired = rule.fired() > 0;
        rule.remove();
        test::Lab::prepare();  // libpci keeps the last function's file open until then
        EXPECT_FALSE(threw) << describe(failure, nth);
        const test::Held after = test::held(lab_.host());
        EXPECT_LE(after.descriptors, before.descriptors) << describe(failure, nth);
        if (GetParam().stays.empty()) {
            EXPECT_EQ(after.mappings, before.mappings) << describe(failure, nth);
        }
        return fired;
    }

    static std::string describe(const Failure& failure, unsigned nth) {
        return std::string(GetParam().name) + ": " + test::describe(failure, nth);
    }

    static void TearDownTestSuite() {
        std::printf("%u failures, %zu functions\n", total_, test::entry_points().size());
        fired_.expect_all(kFailures);
    }

    static inline unsigned total_ = 0;
    static inline test::FiredKinds fired_;
    test::Lab lab_;
};

TEST_P(EntryPointTest, BearsTheFailureOfEachOfItsCalls) {
    unsigned runs = 0;
    const kxsim::Calls calls = lab_.host().count([] {
        const test::Silence silence;
        GetParam().call();
    });
    for (std::size_t k = 0; k < std::size(kFailures); ++k) {
        const Failure& failure = kFailures[k];
        if (calls[failure.call] == 0 || !meets(GetParam(), k)) {
            continue;
        }
        for (unsigned nth = 1; run(failure, nth) && !HasFailure(); nth = next_position(nth)) {
            fired_.add(failure);
            ++runs;
            if (test::kSanitized) {
                break;
            }
        }
    }
    total_ += runs;
}

// --- Reads and writes that move one byte at a time ---

class OneByteAtATime : public testing::Test {
protected:
    // The content of a file after a call, with complete or shortened reads and writes.
    std::string left_in(const char* path, void (*call)(), bool cut_short) {
        test::Lab lab;
        lab.host().file(path, kText);
        if (cut_short) {
            for (const char* transfer : {"read", "write"}) {
                lab.host().fail({.call = transfer, .times = 0, .error = 0, .most = 1});
            }
        }
        const test::Silence silence;
        call();
        return lab.host().read(path);
    }

    static constexpr char kText[] = "# kept\neth2.mtu = 1500\ntoe.toe0_tom.ddp = 0";
};

TEST_F(OneByteAtATime, IsEnoughToRecordASettingOfAPort) {
    for (const auto call :
         {+[] { savePortParam("mtu", "eth2", 1, 9000); },
          +[] { savePortParam("tso", "eth2", 1, 1); }}) {
        const std::string whole = left_in(KX_PORT_PARAMETER_FILE, call, false);
        EXPECT_NE(whole, kText);
        EXPECT_EQ(left_in(KX_PORT_PARAMETER_FILE, call, true), whole);
    }
}

TEST_F(OneByteAtATime, IsEnoughToRecordASettingOfACard) {
    for (const auto call :
         {+[] { saveSysctlParam("/proc/sys/toe/toe0_tom/ddp", 1); },
          +[] { saveSysctlParam("/proc/sys/toe/toe0_tom/mss", 1460); }}) {
        const std::string whole = left_in(KX_SYSCTL_FILE, call, false);
        EXPECT_NE(whole, kText);
        EXPECT_EQ(left_in(KX_SYSCTL_FILE, call, true), whole);
    }
}

TEST_F(OneByteAtATime, IsEnoughToFindOutAboutAModule) {
    test::Lab lab;
    for (const char* transfer : {"read", "write"}) {
        lab.host().fail({.call = transfer, .times = 0, .error = 0, .most = 1});
    }
    std::string name = "zfab4";
    std::array<char, 256> version{};
    std::array<char, 256> description{};
    EXPECT_EQ(getModinfo(name.data(), version.data(), description.data()), KX_SUCCESS);
    EXPECT_STRNE(version.data(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Flat, EntryPointTest, testing::ValuesIn(struck_functions()),
    [](const auto& entry) { return std::string(entry.param.name); });

}  // namespace
