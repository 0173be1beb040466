// The library on libvirt's test driver, which simulates a hypervisor inside the process. virsh is
// another process, and sees the domains as they were at the start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/export.h>
#include <kxlinhw/vmutils.h>
#include <libvirt/libvirt.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

#if defined(__SANITIZE_ADDRESS__)
// The class leaves handles and texts of libvirt allocated; other tests distinguish them from leaks.
extern "C" KX_EXPORT const char* __asan_default_options() { return "detect_leaks=0"; }
#endif

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr char kNode[] = R"(<node>
  <domain type='test' xmlns:test='http://libvirt.org/schemas/domain/test/1.0'>
    <name>running one</name><uuid>11223344-5566-7788-99aa-bbccddeeff01</uuid>
    <memory>8192</memory><os><type>hvm</type></os>
    <devices>
      <interface type='bridge'><mac address='52:54:00:aa:bb:01'/><source bridge='br0'/>
        <model type='virtio'/></interface>
      <interface type='network'><mac address='52:54:00:aa:bb:02'/><source network='default'/>
      </interface>
      <hostdev mode='subsystem' type='pci' managed='yes'><source>
        <address domain='0x0000' bus='0x03' slot='0x01' function='0x2'/></source></hostdev>
      <hostdev mode='subsystem' type='pci' managed='yes'><source>
        <address domain='0x0000' bus='0x55' slot='0x01' function='0x3'/></source></hostdev>
    </devices>
  </domain>
  <domain type='test' xmlns:test='http://libvirt.org/schemas/domain/test/1.0'>
    <name>paused-one</name><uuid>11223344-5566-7788-99aa-bbccddeeff02</uuid>
    <memory>8192</memory><os><type>hvm</type></os>
    <test:runstate>3</test:runstate>
  </domain>
  <domain type='test' xmlns:test='http://libvirt.org/schemas/domain/test/1.0'>
    <name>off-one</name><uuid>11223344-5566-7788-99aa-bbccddeeff03</uuid>
    <memory>8192</memory><os><type>hvm</type></os>
    <test:runstate>5</test:runstate>
  </domain>
  <domain type='test' xmlns:test='http://libvirt.org/schemas/domain/test/1.0'>
    <name>off-two</name><uuid>11223344-5566-7788-99aa-bbccddeeff04</uuid>
    <memory>8192</memory><os><type>hvm</type></os>
    <test:runstate>5</test:runstate>
  </domain>
  <domain type='test' xmlns:test='http://libvirt.org/schemas/domain/test/1.0'>
    <name>2</name><uuid>11223344-5566-7788-99aa-bbccddeeff05</uuid>
    <memory>8192</memory><os><type>hvm</type></os>
    <devices><graphics type='vnc' port='-1' passwd='secret'/>
      <interface type='bridge'><mac address='52:54:00:aa:bb:05'/><source bridge='br0'/>
      </interface></devices>
  </domain>
  <domain type='test' xmlns:test='http://libvirt.org/schemas/domain/test/1.0'>
    <name>11223344-5566-7788-99aa-bbccddeeff03</name>
    <uuid>11223344-5566-7788-99aa-bbccddeeff06</uuid>
    <memory>8192</memory><os><type>hvm</type></os>
  </domain>
</node>
)";

// The name that this driver gives to every system.
constexpr char kOsType[] = "linux";

struct Domain {
    std::string name;
    int id;
    int state;
    std::string os_type;
};

// The tests run in a directory of their own and in this order, with one hypervisor for all of them:
// each test finds what the tests before it changed.
class TestDriver : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (test::shell("test -x /usr/bin/virsh").status != 0) {
            why_not_ = "virsh (libvirt-clients) is not installed";
            return;
        }
        directory_.emplace();
        working_directory_.emplace(directory_->path());
        const std::string node = directory_->write("node.xml", kNode);
        // The adapters: functions on bus 3.
        directory_->write("lspci", "#!/bin/sh\necho '0000:03:00.0 Ethernet: Kestrix adapter'\n");
        fs::permissions("lspci", fs::perms::owner_all);
        const std::string path = directory_->path().string() + ":" + std::getenv("PATH");
        setenv("PATH", path.c_str(), 1);
        setenv("LIBVIRT_DEFAULT_URI", ("test://" + node).c_str(), 1);
        vm_ = new VMUtils;
    }
    static void TearDownTestSuite() {
        delete vm_;
        working_directory_.reset();
        directory_.reset();
    }
    void SetUp() override {
        if (!why_not_.empty()) {
            GTEST_SKIP() << why_not_;
        }
    }

    static std::vector<Domain> list() {
        _KVMInfo* records = nullptr;
        int count = 0;
        EXPECT_EQ(vm_->listVMs(&records, &count), 0);
        std::vector<Domain> domains;
        for (int k = 0; k < count; ++k) {
            domains.push_back(
                {records[k].name, records[k].id, records[k].state, records[k].osType});
        }
        std::free(records);
        return domains;
    }
    static virDomainPtr domain(unsigned char last) {
        unsigned char uuid[16] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,
                                  0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff, last};
        return vm_->getDomainPtr(uuid);
    }
    static std::string uuid_text(const std::string& last) {
        return "112233445566778899aabbccddeeff" + last;
    }
    static int operate(const std::string& last, int operation) {
        std::string uuid = uuid_text(last);
        std::string time = "0";
        errno = 0;
        return vm_->VMStateOperation(uuid.data(), operation, time.data());
    }
    static std::string vfs_of_running_one() {
        _VF* vfs = nullptr;
        std::string uuid = uuid_text("01");
        const std::string output =
            test::printed([&] { EXPECT_EQ(vm_->listVFsForVM(uuid.data(), &vfs), 0); });
        std::free(vfs);
        return output;
    }
    static int id_of(const std::string& name) {
        for (const Domain& entry : list()) {
            if (entry.name == name) {
                return entry.id;
            }
        }
        return -99;
    }
    static std::vector<_interfaceInfo> interfaces(int id = 1) {
        _interfaceInfo* list = nullptr;
        int count = 0;
        EXPECT_EQ(vm_->listInterfacesForVM(id, &list, &count), 0);
        std::vector<_interfaceInfo> interfaces(list, list + count);
        std::free(list);
        return interfaces;
    }

    static inline VMUtils* vm_ = nullptr;
    static inline std::string why_not_;
    static inline std::optional<test::ScratchDirectory> directory_;
    static inline std::optional<test::WorkingDirectory> working_directory_;
};

std::ostream& operator<<(std::ostream& out, const Domain& domain) {
    return out << domain.name << " id " << domain.id << " state " << domain.state << " "
               << domain.os_type;
}

testing::Matcher<const Domain&> is_domain(const std::string& name, int id, int state) {
    return testing::AllOf(
        testing::Field(&Domain::name, name), testing::Field(&Domain::id, id),
        testing::Field(&Domain::state, state), testing::Field(&Domain::os_type, kOsType));
}

TEST_F(TestDriver, DomainsAreListedWithTheirStates) {
    EXPECT_THAT(
        list(), UnorderedElementsAre(
                    is_domain("running one", 1, 1), is_domain("paused-one", 2, 3),
                    is_domain("2", 3, 1), is_domain("11223344-5566-7788-99aa-bbccddeeff03", 4, 1),
                    is_domain("off-one", -1, 5), is_domain("off-two", -1, 5)));
    EXPECT_LT(list().at(4).id, 0) << "those that are off stand behind the others";
}

TEST_F(TestDriver, DomainsAreFoundByUuid) {
    int state = 0;
    EXPECT_EQ(vm_->getDomainState(domain(1), &state), 0);
    EXPECT_EQ(state, 1);
    EXPECT_EQ(vm_->getDomainState(domain(2), &state), 0);
    EXPECT_EQ(state, 3);
    EXPECT_EQ(vm_->getDomainState(domain(3), &state), 0);
    EXPECT_EQ(state, 5);
    EXPECT_EQ(domain(99), nullptr);
}

// The domain with id 2 is paused; the domain with this UUID is off.
TEST_F(TestDriver, NamesThatLookLikeAnIdOrAUuidMeanTheirOwnDomain) {
    for (const unsigned char named : {std::uint8_t{5}, std::uint8_t{6}}) {
        int state = 0;
        EXPECT_EQ(vm_->getDomainState(domain(named), &state), 0);
        EXPECT_EQ(state, 1);
        EXPECT_EQ(vm_->VMResume(domain(named)), 1) << "it runs; another one would be resumed";
        EXPECT_EQ(vm_->VMSuspend(domain(named), 0), 0);
    }
}

TEST_F(TestDriver, UnknownDomainsAreRefused) {
    EXPECT_EQ(operate("63", 0), 1);
    _VF* vfs = nullptr;
    EXPECT_EQ(vm_->listVFsForVM(77, &vfs), -1);
    EXPECT_EQ(vm_->attachVFToVM(77, {0, 3, 1, 2}), 1);
    EXPECT_EQ(vm_->dettachVFFromVM(77, {0, 3, 1, 2}), 1);
    EXPECT_EQ(vm_->dettachInterfaceFromVM(77, {}), 1);
}

TEST_F(TestDriver, VfsOfADomainAreThoseOnTheAdaptersBuses) {
    const std::string printed = vfs_of_running_one();
    EXPECT_THAT(printed, HasSubstr("The number of VFS 1\n 3:1.2\n"));
    EXPECT_THAT(printed, Not(HasSubstr("85:1.3")));
}

TEST_F(TestDriver, AttachingWhatTheHypervisorRefusesChangesNothing) {
    EXPECT_EQ(vm_->attachVFToVM(1, {0, 3, 2, 2}), 1) << "this driver attaches no host device";
    EXPECT_THAT(vfs_of_running_one(), HasSubstr("The number of VFS 1"));
}

TEST_F(TestDriver, InterfacesAreListed) {
    const auto found = interfaces();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_STREQ(found[0].type, "bridge");
    EXPECT_STREQ(found[0].bridge, "br0");
    EXPECT_STREQ(found[0].model, "virtio");
    EXPECT_STREQ(found[0].targetDev, "testnet0");
    const unsigned char mac[] = {0x52, 0x54, 0x00, 0xAA, 0xBB, 0x02};
    EXPECT_EQ(std::memcmp(found[1].mac, mac, sizeof mac), 0);
    EXPECT_STREQ(found[1].type, "network");
    EXPECT_STREQ(found[1].bridge, "");
    EXPECT_STREQ(found[1].model, "N/A");
}

TEST_F(TestDriver, InterfacesAreTakenOutOfTheDefinition) {
    _interfaceInfo info = interfaces().at(1);
    EXPECT_EQ(vm_->dettachInterfaceFromVM(1, info), 0);
    EXPECT_EQ(interfaces().size(), 2U) << "the running domain keeps it";
    std::strcpy(info.targetDev, "none");
    EXPECT_EQ(vm_->dettachInterfaceFromVM(1, info), 1);
}

TEST_F(TestDriver, RedefinitionsReachTheNextStartAlone) {
    EXPECT_EQ(vm_->dettachVFFromVM(1, {0, 3, 1, 2}), 0);
    EXPECT_EQ(vm_->dettachVFFromVM(1, {0, 3, 1, 2}), 1) << "no longer in the definition";
    EXPECT_THAT(vfs_of_running_one(), HasSubstr("The number of VFS 1")) << "still running with it";
    std::string uuid = uuid_text("01");
    EXPECT_EQ(vm_->dettachVFFromVM(uuid.data(), {0, 0x55, 1, 3}), 0);
}

std::string definition_of(virDomainPtr domain) {
    char* const text = virDomainGetXMLDesc(domain, VIR_DOMAIN_XML_INACTIVE | VIR_DOMAIN_XML_SECURE);
    std::string definition = text;
    std::free(text);
    return definition;
}

TEST_F(TestDriver, RedefinitionsDropConsolePasswords) {
    EXPECT_THAT(definition_of(domain(5)), HasSubstr("passwd='secret'"));
    EXPECT_EQ(vm_->dettachInterfaceFromVM(3, {}), 0);
    EXPECT_THAT(definition_of(domain(5)), HasSubstr("<graphics type='vnc'"));
    EXPECT_THAT(definition_of(domain(5)), Not(HasSubstr("passwd")));
}

TEST_F(TestDriver, DomainsStartRebootAndShutDown) {
    EXPECT_EQ(operate("03", 0), 0);
    EXPECT_GT(id_of("off-one"), 0);
    EXPECT_EQ(vm_->VMLaunch(domain(3)), 1) << "it runs already";
    EXPECT_EQ(operate("01", 3), 0);
    EXPECT_EQ(id_of("running one"), 1) << "still there";
    EXPECT_EQ(operate("01", 2), 0);
    EXPECT_EQ(id_of("running one"), -1);
    EXPECT_EQ(vm_->VMShutdown(domain(1)), 1) << "it is off already";
    EXPECT_EQ(vm_->VMShutdown(nullptr), 1);
    EXPECT_EQ(vm_->VMReboot(domain(4)), 1) << "it is off";
}

TEST_F(TestDriver, ADomainStartsAgainWithoutWhatWasTakenAway) {
    EXPECT_EQ(vm_->VMLaunch(domain(1)), 0);
    EXPECT_THAT(vfs_of_running_one(), HasSubstr("The number of VFS 0"));
    EXPECT_EQ(interfaces(id_of("running one")).size(), 1U);
}

TEST_F(TestDriver, SuspendAndResumeAreVirshsWord) {
    EXPECT_EQ(vm_->VMSuspend(domain(1), 0), 0);
    EXPECT_EQ(vm_->VMSuspend(domain(3), 0), 1) << "for virsh it is off";
    EXPECT_EQ(vm_->VMResume(domain(2)), 0);
    EXPECT_EQ(operate("02", 0), 0) << "starting a paused domain resumes it";
    EXPECT_EQ(operate("01", 4), 1) << "it is not paused";
}

}  // namespace
