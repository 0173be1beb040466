// The library on a private libvirtd with emulated guests, compared with virsh.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/export.h>
#include <kxlinhw/vmutils.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "real/private_libvirtd.hpp"
#include "support/output.hpp"

#if defined(__SANITIZE_ADDRESS__)
// The class leaves handles and texts of libvirt allocated; other tests distinguish them from leaks.
extern "C" KX_EXPORT const char* __asan_default_options() { return "detect_leaks=0"; }
#endif

namespace {

using test::lines_of;
using test::PrivateLibvirtd;
using test::wait_until;
using testing::HasSubstr;
using testing::Not;

constexpr char kName[] = "kx one";  // a name that needs quotes in commands
constexpr char kUuid[] = "11223344-5566-7788-99aa-bbccddeeff00";
constexpr char kUuidDigits[] = "112233445566778899aabbccddeeff00";
constexpr int kStart = 0;
constexpr int kSuspend = 1;
constexpr int kShutDown = 2;
constexpr int kReboot = 3;
constexpr int kResume = 4;

std::string virsh(const std::string& arguments) {
    const auto ran = test::shell("virsh " + arguments + " 2>&1");
    EXPECT_EQ(ran.status, 0) << arguments << ": " << ran.output;
    return ran.output;
}

std::string state() { return lines_of(virsh("domstate 'kx one'"))[0]; }
bool has_state(const std::string& wanted) {
    return wait_until([&] { return state() == wanted; });
}

class QemuDomains : public testing::Test {
protected:
    static void SetUpTestSuite() {
        why_not_ = PrivateLibvirtd::missing();
        if (why_not_.empty()) {
            libvirtd_ = new PrivateLibvirtd;
            std::filesystem::current_path(libvirtd_->directory());
            vm_ = new VMUtils;
        }
    }
    static void TearDownTestSuite() {
        delete vm_;
        std::filesystem::current_path("/");
        delete libvirtd_;
    }
    void SetUp() override {
        if (!why_not_.empty()) {
            GTEST_SKIP() << why_not_;
        }
        ASSERT_TRUE(libvirtd_->answers()) << libvirtd_->log();
    }
    void TearDown() override {
        if (libvirtd_ != nullptr) {
            test::shell("virsh destroy 'kx one' >/dev/null 2>&1");
            test::shell("virsh undefine 'kx one' >/dev/null 2>&1");
        }
    }

    static void define(const std::string& devices = "") {
        const auto path = libvirtd_->directory() / "define.xml";
        std::ofstream(path) << libvirtd_->description(kName, kUuid, devices);
        virsh("define " + path.string());
    }
    // Define and start the domain, and wait until its guest runs. Returns its id.
    static int run_guest() {
        define();
        libvirtd_->forget_boots(kUuid);
        virsh("start 'kx one'");
        EXPECT_TRUE(wait_until([] { return libvirtd_->boots(kUuid) == 1; }));
        return std::stoi(virsh("domid 'kx one'"));
    }

    static int operate(int operation) {
        std::string uuid = kUuidDigits;
        std::string time = "0";
        errno = 0;
        return vm_->VMStateOperation(uuid.data(), operation, time.data());
    }
    static _KVMInfo listed() {
        _KVMInfo* records = nullptr;
        int count = 0;
        EXPECT_EQ(vm_->listVMs(&records, &count), 0);
        EXPECT_EQ(count, 1);
        const _KVMInfo record = count > 0 ? records[0] : _KVMInfo{};
        std::free(records);
        return record;
    }
    static std::vector<_interfaceInfo> interfaces(int id) {
        _interfaceInfo* list = nullptr;
        int count = 0;
        EXPECT_EQ(vm_->listInterfacesForVM(id, &list, &count), 0);
        std::vector<_interfaceInfo> interfaces(list, list + count);
        std::free(list);
        return interfaces;
    }
    static int attach(int id, std::string bridge) { return vm_->attachBrdgToVM(id, bridge.data()); }

    static inline PrivateLibvirtd* libvirtd_ = nullptr;
    static inline VMUtils* vm_ = nullptr;
    static inline std::string why_not_;
};

// A line of "virsh domiflist", built from a record.
std::string as_virsh_lists(const _interfaceInfo& info) {
    char line[200];
    std::snprintf(
        line, sizeof line, "%s %s %s %s %02x:%02x:%02x:%02x:%02x:%02x", info.targetDev, info.type,
        info.bridge, info.model, info.mac[0], info.mac[1], info.mac[2], info.mac[3], info.mac[4],
        info.mac[5]);
    return line;
}

// The lines that virsh lists, with single blanks.
std::vector<std::string> virsh_interfaces(const std::string& options = "") {
    std::vector<std::string> lines;
    for (const std::string& line : lines_of(test::shell(
                                                "virsh domiflist 'kx one' " + options +
                                                " | tail -n +3 | tr -s ' ' | sed 's/^ //;s/ $//'")
                                                .output)) {
        if (!line.empty()) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::string mac_of(const _interfaceInfo& info) {
    const std::string line = as_virsh_lists(info);
    return line.substr(line.rfind(' ') + 1);
}

TEST_F(QemuDomains, GoThroughTheirLifeAsVirshSeesIt) {
    define();
    EXPECT_STREQ(listed().name, kName);
    EXPECT_EQ(listed().id, -1);
    EXPECT_EQ(listed().state, KX_VM_SHUT_OFF);
    EXPECT_STREQ(listed().osType, "hvm");
    EXPECT_EQ(listed().uuid[0], 0x11);
    EXPECT_EQ(listed().uuid[14], 0xFF);

    EXPECT_EQ(operate(kShutDown), 1) << "it is off";
    EXPECT_EQ(operate(kStart), 0);
    EXPECT_EQ(state(), "running");
    EXPECT_EQ(listed().state, KX_VM_RUNNING);
    EXPECT_EQ(std::to_string(listed().id), lines_of(virsh("domid 'kx one'"))[0]);
    EXPECT_TRUE(wait_until([] { return libvirtd_->boots(kUuid) == 1; })) << "the guest is at work";

    EXPECT_EQ(operate(kSuspend), 0);
    EXPECT_EQ(state(), "paused");
    EXPECT_EQ(listed().state, KX_VM_PAUSED);
    EXPECT_EQ(operate(kSuspend), 1) << "it is paused";
    EXPECT_EQ(operate(kResume), 0);
    EXPECT_EQ(state(), "running");
    EXPECT_EQ(operate(kResume), 1) << "it runs";
    EXPECT_EQ(operate(kSuspend), 0);
    EXPECT_EQ(operate(kStart), 0) << "starting a paused domain resumes it";
    EXPECT_EQ(state(), "running");

    EXPECT_EQ(operate(kReboot), 0);
    EXPECT_TRUE(wait_until([] { return libvirtd_->boots(kUuid) == 2; })) << "the guest came again";
    EXPECT_TRUE(has_state("running"));

    EXPECT_EQ(operate(kShutDown), 0);
    EXPECT_TRUE(has_state("shut off")) << "the guest has done what it was asked";
    EXPECT_EQ(listed().id, -1);
    EXPECT_EQ(listed().state, KX_VM_SHUT_OFF);
}

TEST_F(QemuDomains, GetInterfacesOnABridgeAndLoseThemFromTheirDefinition) {
    const int id = run_guest();
    EXPECT_TRUE(interfaces(id).empty());

    EXPECT_EQ(attach(id, "nobridge0"), 1);
    EXPECT_EQ(attach(id + 1, PrivateLibvirtd::kBridge), 1);
    EXPECT_TRUE(interfaces(id).empty());

    EXPECT_EQ(attach(id, PrivateLibvirtd::kBridge), 0);
    _interfaceInfo second{};
    std::strcpy(second.bridge, PrivateLibvirtd::kBridge);
    EXPECT_EQ(vm_->attachInterfaceToVM(id, second), 0);

    const auto found = interfaces(id);
    ASSERT_EQ(found.size(), 2U);
    const auto seen = virsh_interfaces();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(as_virsh_lists(found[0]), seen[0]);
    EXPECT_EQ(as_virsh_lists(found[1]), seen[1]);
    EXPECT_STREQ(found[0].alias, "net0");
    EXPECT_THAT(virsh("dumpxml --inactive 'kx one'"), Not(HasSubstr("<interface")));

    // The live description, without the second interface, becomes the definition.
    EXPECT_EQ(vm_->dettachInterfaceFromVM(id, found[1]), 0);
    EXPECT_EQ(virsh_interfaces(), seen) << "the running domain keeps both";
    EXPECT_THAT(virsh("dumpxml --inactive 'kx one'"), HasSubstr(mac_of(found[0])));
    EXPECT_THAT(virsh("dumpxml --inactive 'kx one'"), Not(HasSubstr(mac_of(found[1]))));

    EXPECT_EQ(vm_->dettachInterfaceFromVM(id, found[0]), 0);
    EXPECT_THAT(virsh("dumpxml --inactive 'kx one'"), Not(HasSubstr(mac_of(found[0]))));
    _interfaceInfo other = found[0];
    std::strcpy(other.targetDev, "other");
    EXPECT_EQ(vm_->dettachInterfaceFromVM(id, other), 1);
}

TEST_F(QemuDomains, RefuseAVfThatTheHostCannotGive) {
    const int id = run_guest();
    const std::string live = virsh("dumpxml 'kx one'");
    const std::string inactive = virsh("dumpxml --inactive 'kx one'");
    const _VF absent{0, 0xFE, 0x1F, 7};
    EXPECT_EQ(vm_->attachVFToVM(id, absent), 1);
    std::string uuid = kUuidDigits;
    EXPECT_EQ(vm_->attachVFToVM(uuid.data(), absent), 1);
    EXPECT_EQ(virsh("dumpxml 'kx one'"), live);
    EXPECT_EQ(virsh("dumpxml --inactive 'kx one'"), inactive);
}

std::string hostdev(const std::string& bus, const std::string& function) {
    return "<hostdev mode='subsystem' type='pci' managed='yes'><source><address domain='0x0000' "
           "bus='" +
           bus + "' slot='0x01' function='" + function + "'/></source></hostdev>";
}

// A description without the lines of its k-th host device, counted from 0.
std::string without_hostdev(const std::string& description, int k) {
    std::string rest;
    int device = -1;
    bool inside = false;
    for (const std::string& line : lines_of(description)) {
        if (line.find("<hostdev ") != line.npos) {
            ++device;
            inside = true;
        }
        if (!inside || device != k) {
            rest += line + "\n";
        }
        inside = inside && line.find("</hostdev>") == line.npos;
    }
    return rest;
}

TEST_F(QemuDomains, LoseTheSecondOfTwoVfsAndNothingElse) {
    define(hostdev("0xfd", "0x2") + hostdev("0xfe", "0x7"));
    const std::string before = virsh("dumpxml --inactive 'kx one'");
    std::string uuid = kUuidDigits;
    EXPECT_EQ(vm_->dettachVFFromVM(uuid.data(), {0, 0xFE, 1, 7}), 0);
    const std::string after = virsh("dumpxml --inactive 'kx one'");
    EXPECT_EQ(after, without_hostdev(before, 1));
    EXPECT_NE(after, before);
    EXPECT_EQ(vm_->dettachVFFromVM(uuid.data(), {0, 0xFE, 1, 7}), 1) << "it is gone";
    EXPECT_EQ(virsh("dumpxml --inactive 'kx one'"), after);
}

TEST_F(QemuDomains, KeepRunningAsTheyAreWhenTheirDefinitionLosesAVf) {
    const int id = run_guest();
    define(hostdev("0xfd", "0x2") + hostdev("0xfe", "0x7"));  // for the next start
    const std::string live = virsh("dumpxml 'kx one'");
    const std::string before = virsh("dumpxml --inactive 'kx one'");
    EXPECT_EQ(vm_->dettachVFFromVM(id, {0, 0xFE, 1, 7}), 0);
    EXPECT_EQ(virsh("dumpxml --inactive 'kx one'"), without_hostdev(before, 1));
    EXPECT_EQ(virsh("dumpxml 'kx one'"), live);
    EXPECT_EQ(state(), "running");
}

TEST_F(QemuDomains, ListTheirVfsFromWhatLibvirtWrites) {
    define(hostdev("0x03", "0x2") + hostdev("0xfe", "0x7"));
    // This host has no adapter, so a script shows one on bus 3.
    const auto lspci = libvirtd_->directory() / "lspci";
    std::ofstream(lspci) << "#!/bin/sh\necho '0000:03:00.0 Ethernet: Kestrix adapter'\n";
    std::filesystem::permissions(lspci, std::filesystem::perms::owner_all);
    const std::string path = std::getenv("PATH");
    setenv("PATH", (libvirtd_->directory().string() + ":" + path).c_str(), 1);
    _VF* vfs = nullptr;
    std::string uuid = kUuidDigits;
    const std::string output =
        test::printed([&] { EXPECT_EQ(vm_->listVFsForVM(uuid.data(), &vfs), 0); });
    EXPECT_THAT(output, HasSubstr("The number of VFS 1\n 3:1.2\n"));
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(vfs[0].bus, 3);
    EXPECT_EQ(vfs[0].function, 2);
    std::free(vfs);
}

// The last test, because it ends the hypervisor.
TEST_F(QemuDomains, LeaveNothingBehindWhenTheirHypervisorEnds) {
    run_guest();
    EXPECT_GE(libvirtd_->processes(), 3) << "shell, libvirtd, guest";
    kill(libvirtd_->pid(), SIGKILL);
    EXPECT_TRUE(wait_until([] { return libvirtd_->processes() == 0; }));
    EXPECT_NE(test::shell("ip link show kxbr0 2>/dev/null").status, 0);

    // The connection stays. Writing to it would end a process that does not expect SIGPIPE.
    std::signal(SIGPIPE, SIG_DFL);
    _KVMInfo* records = nullptr;
    int count = 0;
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(vm_->listVMs(&records, &count), 1);
        EXPECT_EQ(operate(kReboot), 1);
    }
}

TEST(PrivateLibvirtd, EndsWithATestProgramThatIsKilled) {
    if (const std::string missing = PrivateLibvirtd::missing(); !missing.empty()) {
        GTEST_SKIP() << missing;
    }
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t program = fork();
    if (program == 0) {
        const PrivateLibvirtd libvirtd;
        const std::string line =
            libvirtd.directory().string() + " " + libvirtd.process_namespace() + "\n";
        if (write(ends[1], line.data(), line.size()) > 0) {
            pause();
        }
        _exit(1);
    }
    close(ends[1]);
    char line[200] = {};
    EXPECT_GT(read(ends[0], line, sizeof line - 1), 0);
    close(ends[0]);
    std::istringstream words(line);
    std::string process_namespace;
    std::string directory;
    words >> directory >> process_namespace;
    EXPECT_GE(PrivateLibvirtd::processes_in(process_namespace), 2) << "shell and libvirtd";
    kill(program, SIGKILL);
    waitpid(program, nullptr, 0);
    EXPECT_TRUE(wait_until([&] { return PrivateLibvirtd::processes_in(process_namespace) == 0; }));
    if (!directory.empty()) {
        std::filesystem::remove_all(directory);
    }
}

}  // namespace
