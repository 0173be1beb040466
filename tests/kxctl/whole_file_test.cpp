// Copies of a flash: complete and on the disk, or missing.
#include "files/whole_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <kxsim/host.hpp>
#include <string>

#include "failure/failure.hpp"

namespace {

namespace fs = std::filesystem;
using kx::ctl::ExitCode;
using kx::ctl::Failure;
using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

class WholeFile : public testing::Test {
protected:
    WholeFile() { host_.directory("/copies"); }

    // The failure of something that must fail.
    template <class Body>
    static Failure failure_of(Body body) {
        try {
            body();
        } catch (const Failure& failure) {
            return failure;
        }
        ADD_FAILURE() << "it was done";
        return {ExitCode::kDone, ""};
    }

    // On a simulated host, whose file calls can fail. The paths are those of its files on this
    // machine, so that named pipes and all else can be made there.
    kxsim::Host host_;
    const fs::path directory_ = host_.root() + "/tree/copies";
    const std::string path_ = directory_ / "copy";
    Bytes bytes_ = Bytes(10000, 0xA5);
};

TEST_F(WholeFile, IsFlushedWithItsName) {
    const auto attached = host_.attach();
    host_.watch_flushes();
    const kxsim::Calls calls = host_.count([&] { kx::ctl::write_new_file(path_, bytes_); });
    EXPECT_THAT(
        calls.names("file"), ElementsAre("open", "write", "fsync", "rename", "open", "fsync"));
    host_.lose_unflushed();
    EXPECT_EQ(kx::ctl::read_whole_file(path_, 10000), bytes_);
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(WholeFile, IsNotThereWhenAnyCallFails) {
    const auto attached = host_.attach();
    for (unsigned nth = 1; nth <= 6; ++nth) {
        kxsim::FaultRule rule =
            host_.fail({.call = "file", .nth = nth, .error = ENOSPC, .most = 5000});
        const Failure failure = failure_of([&] { kx::ctl::write_new_file(path_, bytes_); });
        rule.remove();
        EXPECT_EQ(rule.fired(), 1U) << nth;
        EXPECT_EQ(failure.code(), ExitCode::kFailed) << nth;
        EXPECT_EQ(failure.line(), path_ + ": No space left on device") << nth;
        EXPECT_TRUE(fs::is_empty(directory_)) << nth;
    }
}

// The kernel ends a process whose file grows beyond its limit.
TEST_F(WholeFile, IsNeverThereInPart) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        kx::ctl::write_new_file(path_, bytes_);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << status;
    EXPECT_FALSE(fs::exists(path_));
    kx::ctl::write_new_file(path_, bytes_);
    EXPECT_EQ(kx::ctl::read_whole_file(path_, 10000), bytes_);
}

TEST_F(WholeFile, IsMadeWhereAKilledProcessOfTheSameNumberLeftItsOwn) {
    std::ofstream(directory_ / (".kxctl-" + std::to_string(getpid()))) << "in part";
    kx::ctl::write_new_file(path_, bytes_);
    EXPECT_EQ(kx::ctl::read_whole_file(path_, 10000), bytes_);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_), fs::directory_iterator()), 1);
}

TEST_F(WholeFile, GoesWhereDirectoriesCannotBeFlushed) {
    const auto attached = host_.attach();
    const kxsim::FaultRule rule = host_.fail({.call = "fsync", .nth = 2, .error = EINVAL});
    kx::ctl::write_new_file(path_, bytes_);
    EXPECT_EQ(rule.fired(), 1U);
    EXPECT_TRUE(fs::exists(path_));
}

TEST_F(WholeFile, ReplacesNothing) {
    std::ofstream(path_) << "kept";
    fs::create_symlink("nowhere", directory_ / "link");
    for (const std::string& taken : {path_, (directory_ / "link").string(), directory_.string()}) {
        EXPECT_EQ(
            failure_of([&] { kx::ctl::write_new_file(taken, bytes_); }).code(), ExitCode::kUsage);
        EXPECT_EQ(failure_of([&] { kx::ctl::must_be_free(taken); }).code(), ExitCode::kUsage);
    }
    kx::ctl::must_be_free((directory_ / "other").string());
    EXPECT_EQ(fs::file_size(path_), 4U);
    const std::string nowhere = (directory_ / "no" / "other").string();
    EXPECT_EQ(failure_of([&] { kx::ctl::must_be_free(nowhere); }).code(), ExitCode::kNotFound);
}

TEST_F(WholeFile, NameWithoutDirectoryIsInThisOne) {
    const fs::path here = fs::current_path();
    fs::current_path(directory_);
    kx::ctl::write_new_file("copy", bytes_);
    fs::current_path(here);
    EXPECT_EQ(fs::file_size(path_), bytes_.size());
}

TEST_F(WholeFile, IsReadUpToItsLimit) {
    kx::ctl::write_new_file(path_, bytes_);
    EXPECT_EQ(kx::ctl::read_whole_file(path_, 10000), bytes_);
    const Failure large =
        failure_of([&] { static_cast<void>(kx::ctl::read_whole_file(path_, 9999)); });
    EXPECT_EQ(large.code(), ExitCode::kUsage);
    EXPECT_EQ(large.line(), path_ + " is larger than 9999 bytes");
}

TEST_F(WholeFile, WhatIsNoFileIsNotRead) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    for (const std::string& other : {path_, directory_.string(), std::string("/dev/zero")}) {
        const Failure failure =
            failure_of([&] { static_cast<void>(kx::ctl::read_whole_file(other, 100)); });
        EXPECT_EQ(failure.code(), ExitCode::kUsage) << other;
        EXPECT_THAT(failure.line(), HasSubstr(" is not a file of bytes"));
    }
    const Failure missing = failure_of(
        [&] { static_cast<void>(kx::ctl::read_whole_file(directory_ / "missing", 100)); });
    EXPECT_EQ(missing.code(), ExitCode::kNotFound);
}

TEST_F(WholeFile, ReadErrorIsTold) {
    kx::ctl::write_new_file(path_, bytes_);
    const auto attached = host_.attach();
    host_.fail({.call = "read", .error = EIO});
    const Failure failure =
        failure_of([&] { static_cast<void>(kx::ctl::read_whole_file(path_, 10000)); });
    EXPECT_EQ(failure.line(), path_ + ": Input/output error");
}

}  // namespace
