// Refusals by permission, by reason: the user, a missing privilege, a restriction of the host.
#include "failure/permission.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "kxctl/on_host.hpp"
#include "support/other_user.hpp"
#include "support/scratch_directory.hpp"

namespace {

using namespace kx::ctl;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uint64_t kAll = ~std::uint64_t{0};
constexpr std::uint64_t without(unsigned capability) {
    return kAll & ~(std::uint64_t{1} << capability);
}

TEST(MissingPrivilege, IsNoneForWhoMayDoEverything) {
    for (const Privilege privilege :
         {Privilege::kOwnFiles, Privilege::kNetworkAdmin, Privilege::kRawAccess,
          Privilege::kConfigSpace}) {
        EXPECT_EQ(missing_privilege(privilege, {}), std::nullopt);
        EXPECT_EQ(missing_privilege(privilege, {.user = 1000, .container = true}), std::nullopt);
    }
}

TEST(MissingPrivilege, TellsRootFromCapabilityContainerAndLockdown) {
    const struct {
        Privilege privilege;
        SecurityContext context;
        const char* text;
    } rows[] = {
        {Privilege::kNetworkAdmin,
         {.user = 1000, .capabilities = 0},
         "the user is not root and lacks CAP_NET_ADMIN"},
        {Privilege::kNetworkAdmin,
         {.capabilities = without(CAP_NET_ADMIN)},
         "root lacks CAP_NET_ADMIN here"},
        {Privilege::kRawAccess,
         {.capabilities = without(CAP_SYS_RAWIO), .container = true},
         "root lacks CAP_SYS_RAWIO here, in a container"},
        {Privilege::kRawAccess,
         {.lockdown = "integrity", .container = true},
         "the kernel is locked down (integrity)"},
        {Privilege::kConfigSpace,
         {.user = 7, .capabilities = without(CAP_SYS_ADMIN)},
         "the user is not root and lacks CAP_SYS_ADMIN"},
        {Privilege::kOwnFiles,
         {.capabilities = without(CAP_DAC_OVERRIDE)},
         "root lacks CAP_DAC_OVERRIDE here"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(missing_privilege(row.privilege, row.context), row.text);
    }
}

TEST(MissingPrivilege, LockdownKeepsNobodyFromWhatItDoesNotCover) {
    EXPECT_EQ(missing_privilege(Privilege::kNetworkAdmin, {.lockdown = "integrity"}), std::nullopt);
}

TEST(LockdownMode, IsTheOneInBrackets) {
    EXPECT_EQ(lockdown_mode("[none] integrity confidentiality"), "");
    EXPECT_EQ(lockdown_mode("none [integrity] confidentiality"), "integrity");
    EXPECT_EQ(lockdown_mode("none integrity [confidentiality]\n"), "confidentiality");
    for (const char* text : {"", "none", "[", "]", "][", "none [integrity"}) {
        EXPECT_EQ(lockdown_mode(text), "") << text;
    }
}

class RefusedMemory : public testing::Test {
protected:
    RefusedMemory() {
        kxsim::Adapter adapter{.chip = "Q4", .location = "04:00.4"};
        adapter.device_id = 0x4410;
        adapter.eeprom.product_data = {.product = "Q404-CR", .serial = "PT04140007"};
        host_.adapter(adapter);
    }

    // All commands that read an adapter fail with the same line; returns it.
    std::string expect_refused() {
        std::string line;
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"flash", "info", "04:00.4"},
              std::vector<std::string>{"adapter", "list"}}) {
            const test::Result result = test::run_on(host_, words);
            EXPECT_EQ(result.exit, 13) << words[0];
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
            EXPECT_EQ(result.out, "");
            EXPECT_THAT(result.err, HasSubstr(": /dev/mem: "));
            line = result.err;
        }
        return line;
    }

    kxsim::Host host_;
};

TEST_F(RefusedMemory, TellsOfALockedDownKernel) {
    host_.file("/sys/kernel/security/lockdown", "none [integrity] confidentiality\n");
    host_.fail({.call = "open", .times = 0, .error = EPERM, .object = "/dev/mem"});
    EXPECT_THAT(
        expect_refused(),
        HasSubstr("Operation not permitted: the kernel is locked down (integrity)\n"));
}

TEST_F(RefusedMemory, TellsThatItIsMissing) {
    host_.remove("/dev/mem");
    EXPECT_THAT(
        expect_refused(),
        HasSubstr("No such file or directory: the kernel was built without it\n"));
}

TEST_F(RefusedMemory, TellsOfARefusalWithoutAKnownReason) {
    host_.fail({.call = "open", .times = 0, .error = EACCES, .object = "/dev/mem"});
    EXPECT_THAT(expect_refused(), HasSubstr(": /dev/mem: Permission denied\n"));
}

// A kernel that keeps everybody from the registers of a device while a driver uses it.
TEST_F(RefusedMemory, NamesTheDriverThatIsBoundAndBothWaysOut) {
    host_.fail({.call = "mmap", .times = 0, .error = EPERM, .object = "/dev/mem"});
    EXPECT_THAT(
        expect_refused(),
        HasSubstr(
            ": /dev/mem: Operation not permitted: the kernel (CONFIG_IO_STRICT_DEVMEM) protects "
            "the registers of 0000:04:00.4 while the driver zfab4 is bound to it; unbind the "
            "driver (echo 0000:04:00.4 > /sys/bus/pci/drivers/zfab4/unbind) or boot with "
            "iomem=relaxed\n"));
}

TEST_F(RefusedMemory, NamesNoDriverWhereNoneIsBound) {
    host_.remove("/sys/bus/pci/devices/0000:04:00.4/driver");
    host_.fail({.call = "mmap", .times = 0, .error = EPERM, .object = "/dev/mem"});
    EXPECT_THAT(expect_refused(), HasSubstr(": /dev/mem: Operation not permitted\n"));
}

TEST_F(RefusedMemory, ThatIsBusyIsNoMatterOfPermission) {
    for (const char* call : {"open", "mmap"}) {
        host_.fail({.call = call, .times = 0, .error = EBUSY, .object = "/dev/mem"});
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"flash", "info", "04:00.4"},
              std::vector<std::string>{"adapter", "list"}}) {
            const test::Result result = test::run_on(host_, words);
            EXPECT_EQ(result.exit, 5) << call;
            EXPECT_THAT(result.err, HasSubstr(": /dev/mem: Device or resource busy\n"));
        }
        host_.clear_faults();
    }
}

// kxctl on this machine, started by setpriv with these options.
class RefusedHere : public testing::Test {
protected:
    void SetUp() override {
        if (!test::can_become(65534)) {
            GTEST_SKIP()
                << "only root can give up privileges, and only where there are other users";
        }
        test::Setup setup;
        setup.program = "setpriv";
        if (test::run({"--bounding-set=-all", "--inh-caps=-all", "true"}, setup).exit != 0) {
            GTEST_SKIP() << "setpriv cannot give up privileges here";
        }
        chmod(directory_.path().c_str(), 0755);
        directory_.write("saved.conf", "eth2.mtu = 1500\n");
        chmod(file_.c_str(), 0644);
    }

    test::Result restore_with(std::vector<std::string> options) const {
        test::Setup setup;
        setup.program = "setpriv";
        options.insert(options.end(), {KXCTL_PROGRAM, "restore", file_});
        return test::run(options, setup);
    }

    const test::ScratchDirectory directory_;
    const std::string file_ = directory_ / "saved.conf";
};

TEST_F(RefusedHere, FileOfRootsIsToldAsAMatterOfTheUser) {
    chmod(file_.c_str(), 0600);
    const test::Result result = restore_with({"--reuid=65534", "--regid=65534", "--clear-groups"});
    EXPECT_EQ(result.exit, 13);
    EXPECT_THAT(
        result.err, StartsWith(
                        "kxctl: " + file_ +
                        ": Permission denied: the user is not root and lacks CAP_DAC_OVERRIDE"));
}

TEST_F(RefusedHere, RootWithoutCapabilitiesIsToldWhichOne) {
    chmod(file_.c_str(), 0600);
    ASSERT_EQ(chown(file_.c_str(), 65534, 65534), 0);
    const test::Result result = restore_with({"--bounding-set=-all", "--inh-caps=-all"});
    EXPECT_EQ(result.exit, 13);
    EXPECT_THAT(result.err, HasSubstr(": Permission denied: root lacks CAP_DAC_OVERRIDE here"));
}

// Generic segmentation offload of the loopback interface; nothing when its driver does not tell it.
std::optional<std::uint32_t> gso_of_loopback() {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ethtool_value value{};
    value.cmd = ETHTOOL_GGSO;
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_data = reinterpret_cast<char*>(&value);
    const bool told = ioctl(descriptor, SIOCETHTOOL, &request) == 0;
    close(descriptor);
    return told ? std::optional(value.data) : std::nullopt;
}

TEST_F(RefusedHere, RestoringWhatIsSoAlreadyNeedsNoPrivilege) {
    const auto gso = gso_of_loopback();
    if (!gso) {
        GTEST_SKIP() << "the loopback interface does not tell its offloads here";
    }
    const std::vector<std::string> nobody = {"--reuid=65534", "--regid=65534", "--clear-groups"};
    const std::string same = "lo.gso = " + std::to_string(*gso) + "\n";
    directory_.write("saved.conf", same);
    const test::Result result = restore_with(nobody);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("unchanged"));

    directory_.write("saved.conf", same + "lo.mtu = 1499\n");
    const test::Result partial = restore_with(nobody);
    EXPECT_EQ(partial.exit, 13);
    EXPECT_THAT(partial.out, HasSubstr("unchanged"));
    EXPECT_THAT(partial.err, HasSubstr("the user is not root and lacks CAP_NET_ADMIN"));
    EXPECT_EQ(gso_of_loopback(), gso);
}

}  // namespace
