// Files below a host's directory: no link leads out of it, whoever makes one and when.
#include "host/beneath.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <kxsim/host.hpp>
#include <thread>

#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;
using kxsim::open_beneath;
using kxsim::open_by_steps;
using testing::AnyOf;

std::string first_line(const fs::path& file) {
    std::string line;
    std::getline(std::ifstream(file), line);
    return line;
}

class Beneath : public testing::Test {
protected:
    Beneath() {
        outside_.write("file", "precious");
        fs::create_directories(top_.path() / "a/b");
        top_.write("a/b/file", "text");
        fs::create_directory_symlink(outside_.path(), top_.path() / "a/absolute");
        fs::create_directory_symlink("../../" + name_of(outside_), top_.path() / "a/climbing");
        fs::create_directory_symlink("b", top_.path() / "a/inside");
        fs::create_symlink(outside_.path() / "file", top_.path() / "a/b/link");
    }

    static std::string name_of(const test::ScratchDirectory& directory) {
        return directory.path().filename();
    }

    const test::ScratchDirectory outside_;
    const test::ScratchDirectory top_;
    const kx::Descriptor directory_{::open(top_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(Beneath, FilesAreOpenedWithAndWithoutTheKernelsHelp) {
    for (auto* const open : {open_beneath, open_by_steps}) {
        char text[8] = {};
        const kx::Descriptor file = open(directory_.get(), "/a/b/file", O_RDONLY, 0);
        ASSERT_TRUE(file);
        EXPECT_EQ(read(file.get(), text, sizeof text), 4);
        EXPECT_STREQ(text, "text");
        EXPECT_TRUE(open(directory_.get(), "", O_PATH | O_DIRECTORY, 0));
        EXPECT_TRUE(open(directory_.get(), "/a/new", O_WRONLY | O_CREAT | O_TRUNC, 0600));
        EXPECT_FALSE(open(directory_.get(), "/a/c/file", O_RDONLY, 0));
        EXPECT_EQ(errno, ENOENT);
    }
}

TEST_F(Beneath, NoLinkIsFollowed) {
    for (auto* const open : {open_beneath, open_by_steps}) {
        for (const char* place :
             {"/a/absolute/file", "/a/climbing/file", "/a/inside/file", "/a/b/link"}) {
            EXPECT_FALSE(open(directory_.get(), place, O_WRONLY | O_TRUNC, 0)) << place;
            EXPECT_THAT(errno, AnyOf(ELOOP, ENOTDIR)) << place;
        }
    }
    EXPECT_EQ(first_line(outside_.path() / "file"), "precious");
}

TEST_F(Beneath, LinksAreRemovedAndNotFollowed) {
    kxsim::remove_entry({directory_.get(), "/a"});
    EXPECT_FALSE(fs::exists(top_.path() / "a"));
    kxsim::remove_entry({directory_.get(), "/a"});
    kxsim::remove_entry({directory_.get(), "/a/b"});
    EXPECT_EQ(first_line(outside_.path() / "file"), "precious");
}

// Another process exchanges a directory of the host for a link that leads out, again and again.
TEST_F(Beneath, ABuilderStaysInItsHostWhileADirectoryBecomesALink) {
    kxsim::Host host;
    host.file("/opt/kx/here/file", "");
    const std::string directory = host.root() + "/tree/opt/kx/here";
    const std::string link = host.root() + "/tree/opt/kx/there";
    fs::create_directory_symlink(outside_.path(), link);
    std::atomic<bool> ends = false;
    std::thread other([&] {
        while (!ends) {
            syscall(
                SYS_renameat2, AT_FDCWD, directory.c_str(), AT_FDCWD, link.c_str(),
                RENAME_EXCHANGE);
        }
    });
    const auto attempt = [](auto change) {
        try {
            change();
        } catch (const std::exception&) {  // the link was in the way
        }
    };
    for (int round = 0; round < 4000; ++round) {
        attempt([&] { host.file("/opt/kx/here/file", "ours"); });
        attempt([&] { host.file("/opt/kx/here/new", "ours"); });
        attempt([&] { host.directory("/opt/kx/here/directory"); });
        attempt([&] { host.link("/opt/kx/here/link", "file"); });
        attempt([&] { host.remove("/opt/kx/here/file"); });
    }
    ends = true;
    other.join();
    EXPECT_EQ(first_line(outside_.path() / "file"), "precious");
    for (const auto& entry : fs::directory_iterator(outside_.path())) {
        EXPECT_EQ(entry.path().filename(), "file");
    }
}

TEST(Hosts, KeepTheirRootDirectory) {
    kxsim::Host host;
    EXPECT_THROW(host.remove("/"), std::invalid_argument);
    EXPECT_THROW(host.remove("/etc/.."), std::invalid_argument);
}

}  // namespace
