// The tree of a simulated host while others change it, and its removal.
#include <gtest/gtest.h>

#include <kxsim/preload.h>
#include <filesystem>
#include <fstream>
#include <kxsim/host.hpp>
#include <string>

namespace {

namespace fs = std::filesystem;

std::string content_of(const std::string& path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

// What another process does, on the real machine.
void replace_by_link(const fs::path& directory, const std::string& target) {
    kxsim_pause();
    fs::rename(directory, directory.string() + "-moved");
    fs::create_symlink(target, directory);
    kxsim_resume();
}

TEST(Tree, IsFollowedThroughLinksThatAppearWhileAProcessRuns) {
    kxsim::Host host;
    host.file("/etc/kestrix-plexo/one/file", "one");
    host.file("/etc/kestrix-plexo/two/file", "two");
    const auto attached = host.attach();
    EXPECT_EQ(content_of("/etc/kestrix-plexo/one/file"), "one");
    replace_by_link(host.root() + "/tree/etc/kestrix-plexo/one", "/etc/kestrix-plexo/two");
    EXPECT_EQ(content_of("/etc/kestrix-plexo/one/file"), "two");
    std::ofstream("/etc/kestrix-plexo/one/made") << "made";
    EXPECT_EQ(host.read("/etc/kestrix-plexo/two/made"), "made");
}

TEST(Tree, TakesNewFilesBehindALinkThatReplacesItsDirectory) {
    kxsim::Host host;
    host.file("/opt/kx/one/first", "");
    host.directory("/opt/kx/two");
    replace_by_link(host.root() + "/tree/opt/kx/one", "../../../../../../opt/kx/two");
    host.file("/opt/kx/one/second", "text");
    host.append("/opt/kx/one/second", " and more");
    EXPECT_EQ(host.read("/opt/kx/two/second"), "text and more");
    EXPECT_FALSE(fs::exists("/opt/kx/two/second"));
}

TEST(Tree, KeepsTheModeOfAFileThatIsAppendedTo) {
    kxsim::Host host;
    host.file("/opt/kx/list", "first\n", 0400);
    host.append("/opt/kx/list", "second\n");
    EXPECT_EQ(host.read("/opt/kx/list"), "first\nsecond\n");
    EXPECT_EQ(host.mode("/opt/kx/list"), 0400U);
}

// More entries than one reading of a directory returns, and directories in directories.
TEST(Tree, IsRemovedWholly) {
    std::string root;
    {
        kxsim::Host host;
        root = host.root();
        const std::string name(100, 'n');
        for (int number = 0; number < 300; ++number) {
            host.file("/opt/kx/" + name + std::to_string(number), "");
            host.directory("/opt/kx/directories/" + name + std::to_string(number) + "/a/b/c");
        }
        host.link("/opt/kx/out", "/");
    }
    EXPECT_FALSE(fs::exists(root));
    EXPECT_TRUE(fs::exists("/etc"));
}

}  // namespace
