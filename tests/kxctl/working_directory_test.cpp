// The working directory does not affect the answers of kxctl.
#include "files/working_directory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <kxsim/host.hpp>

#include "kxctl/on_host.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;

// The working directory of the test while the object exists.
class Directory : public test::ScratchDirectory {
    const test::WorkingDirectory here_{path()};
};

kxsim::Module driver(const std::string& version) {
    return {
        .name = "zfab4", .version = version, .description = "driver " + version, .loaded = true};
}

// The library first reads the name of a module as a path. A module file as the simulated host
// creates it.
std::string module_file(const std::string& version) {
    kxsim::Host host;
    host.module(driver(version));
    utsname kernel{};
    uname(&kernel);
    return host.read(std::string("/lib/modules/") + kernel.release + "/updates/zfab4.ko");
}

class WorkingDirectory : public testing::Test {
protected:
    WorkingDirectory() {
        host_.module(driver("1.2.3"));
        host_.adapter(
            {.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}, {.name = "eth3"}}});
    }

    std::string answer() {
        std::string answers;
        for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
                 {"module", "list"}, {"card", "list"}, {"port", "list", "03:00.4"}}) {
            const test::Result result = test::run_on(host_, words);
            answers += std::to_string(result.exit) + result.out + result.err;
        }
        return answers;
    }

    kxsim::Host host_;
};

TEST_F(WorkingDirectory, OfTheUserHoldsNothingThatChangesAnAnswer) {
    const std::string expected = answer();
    EXPECT_THAT(expected, testing::HasSubstr("1.2.3"));
    const std::string other = module_file("6.6.6");
    {
        const Directory directory;
        std::ofstream(directory / "zfab4", std::ios::binary) << other;
        std::ofstream(directory / "libkxlinhw.so.6") << "no library";
        std::ofstream(directory / "libpci.so.3") << "no library";
        EXPECT_EQ(answer(), expected) << "a file";
    }
    {
        const Directory directory;
        fs::create_directory(directory / "zfab4");
        EXPECT_EQ(answer(), expected) << "a directory";
    }
    {
        const Directory directory;
        ASSERT_EQ(mkfifo((directory / "zfab4").c_str(), 0600), 0);
        EXPECT_EQ(answer(), expected) << "a pipe";
    }
    {
        const Directory directory;
        std::ofstream(directory / "real", std::ios::binary) << other;
        fs::create_symlink("real", directory / "zfab4");
        fs::create_directory(directory / "updates");
        std::ofstream(directory / "updates/zfab4", std::ios::binary) << other;
        EXPECT_EQ(answer(), expected) << "a link";
    }
}

TEST_F(WorkingDirectory, OfTheUserIsWhereFilesAreNamedFrom) {
    const Directory directory;
    fs::create_directory(directory / "below");
    EXPECT_EQ(test::run_on(host_, {"metrics", "--output", "below/metrics.prom"}).exit, 0);
    EXPECT_TRUE(fs::exists(directory / "below/metrics.prom"));
    EXPECT_EQ(test::run_on(host_, {"report", "--html", "report.html"}).exit, 0);
    EXPECT_TRUE(fs::exists(directory / "report.html"));
    std::ofstream(directory / "saved.conf") << "";
    EXPECT_EQ(test::run_on(host_, {"restore", "saved.conf"}).exit, 0);
    const test::Result read =
        test::run_on(host_, {"flash", "dump", "03:00.4", "flash.bin", "--region", "config"});
    EXPECT_EQ(read.exit, 0) << read.err;
    EXPECT_TRUE(fs::exists(directory / "flash.bin"));
    const test::Result missing = test::run_on(host_, {"restore", "missing.conf"});
    EXPECT_EQ(missing.err, "kxctl: missing.conf: No such file or directory\n");
}

TEST_F(WorkingDirectory, MayBeGone) {
    const std::string expected = test::run_on(host_, {"card", "list"}).out;
    const Directory directory;
    fs::create_directory(directory / "gone");
    fs::current_path(directory / "gone");
    fs::remove(directory / "gone");
    EXPECT_EQ(test::run_on(host_, {"card", "list"}).out, expected);
}

}  // namespace
