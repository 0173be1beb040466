// domain.xml in the working directory: a file that cannot be written gives no document, and never
// the description of an earlier listing.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>

#include "support/other_user.hpp"
#include "vm/fake_host.hpp"

namespace {

using test::FakeDomain;
using test::handle;
using test::host;
using test::in_fresh_process;
using test::printed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

const std::string kOther =
    "<domain><interface type='bridge'/>"
    "<hostdev mode='subsystem' type='pci'><source><address domain='0' bus='3' slot='1'"
    " function='2'/></source></hostdev></domain>";

std::set<int> open_descriptors() {
    std::set<int> numbers;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        numbers.insert(std::stoi(entry.path().filename()));
    }
    return numbers;
}

// Files of this process may be no longer than this, in place of a disk that is full.
void limit_file_size(rlim_t size) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{size, size};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

class DomainFile : public test::VmTest {
protected:
    DomainFile() : domain_(host().add({.name = "one", .id = 4})) {
        domain_.live = "<domain/>";
        host().run = [](const std::string&) { return test::Ran{0, "0000:03:00.0\n"}; };
        std::signal(SIGALRM, SIG_DFL);
        alarm(60);  // a listing that waits for somebody ends the test
    }
    ~DomainFile() override { alarm(0); }

    void expect_no_document() {
        host().journal.clear();
        _VF* vfs = nullptr;
        _VF** place = &vfs;
        EXPECT_EQ(
            printed([&] { EXPECT_EQ(vm().listVFsForVM(handle(domain_), place), 0); }),
            "some thing went wrong in getting document node\nThe number of VFS 0");
        EXPECT_NE(vfs, nullptr);
        std::free(vfs);
        EXPECT_THAT(host().journal, ElementsAre("virDomainGetXMLDesc one 0"));

        _interfaceInfo* list = nullptr;
        int count = -99;
        EXPECT_EQ(vm().listInterfacesForVM(4, &list, &count), 1);
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(count, -99);
        EXPECT_THAT(
            host().logged(),
            ElementsAre("ListInterfaces: Error while reading domain configuration"));
        EXPECT_EQ(host().counts().count("parse"), 0U);
    }

    FakeDomain& domain_;
};

TEST_F(DomainFile, OfAnotherOwnerIsNotRead) {
    if (geteuid() == 0 && !test::can_become(65534)) {
        GTEST_SKIP() << "root reads every file, and there is no other user here";
    }
    write_domain_file(kOther);
    fs::permissions("domain.xml", fs::perms::owner_read);
    in_fresh_process([this] {
        if (geteuid() == 0) {
            fs::permissions(".", fs::perms::all);
            ASSERT_EQ(seteuid(65534), 0);
        }
        expect_no_document();
    });
    EXPECT_EQ(domain_file(), kOther);
}

TEST_F(DomainFile, IsNotReachedThroughALink) {
    std::ofstream("elsewhere") << kOther;
    fs::create_symlink("elsewhere", "domain.xml");
    expect_no_document();
    EXPECT_EQ(fs::file_size("elsewhere"), kOther.size()) << "nor written there";
}

TEST_F(DomainFile, IsNoDirectoryAndNoDevice) {
    fs::create_directory("domain.xml");
    expect_no_document();
    fs::remove("domain.xml");
    if (mknod("domain.xml", S_IFCHR | 0600, makedev(1, 3)) == 0) {  // as /dev/null
        expect_no_document();
    }
}

TEST_F(DomainFile, IsNoNamedPipe) {
    ASSERT_EQ(mkfifo("domain.xml", 0600), 0);
    expect_no_document();
    const int reader = open("domain.xml", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    expect_no_document();
    close(reader);
}

TEST_F(DomainFile, OnAFullDiskIsNotRead) {
    struct Disk {
        std::size_t length;
        rlim_t room;
    };
    // Noticed when the file is closed; when it is written.
    for (const Disk disk : {Disk{100, 100}, Disk{100000, 100}, Disk{100000, 50000}}) {
        domain_.live = "<domain>" + std::string(disk.length, ' ') + "</domain>";
        write_domain_file(kOther);
        in_fresh_process([&] {
            limit_file_size(disk.room);
            expect_no_document();
        });
    }
}

TEST_F(DomainFile, LeavesNoDescriptorOpen) {
    const std::set<int> before = open_descriptors();
    host().run = [&](const std::string&) {
        EXPECT_EQ(open_descriptors(), before);
        return test::Ran{0, ""};
    };
    _interfaceInfo* list = nullptr;
    int count = 0;
    EXPECT_EQ(vm().listInterfacesForVM(4, &list, &count), 0);
    std::free(list);
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
