// The directory in which commands on machines work: gone however the command ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "kxctl/machines_on_host.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;

// A directory for temporary files, and a directory of programs whose "lspci" does not end by
// itself.
class ScratchDirectory : public test::MachinesOnHost {
protected:
    ScratchDirectory() {
        fs::create_directory(root_ / "temporary");
        fs::create_directory(root_ / "programs");
        fs::permissions(
            root_.write("programs/lspci", "#!/bin/sh\nexec sleep 5\n"), fs::perms::owner_all);
    }

    fs::path temporary() const { return root_ / "temporary"; }

    // A command that waits for lspci in its scratch directory.
    pid_t start_waiting() {
        const auto attached = host.attach();
        const pid_t child = fork();
        if (child == 0) {
            setenv("PATH", (root_ / "programs" + ":/usr/bin:/bin").c_str(), 1);
            setenv("TMPDIR", temporary().c_str(), 1);
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 0);  // with sanitizers
            setpgid(0, 0);
            execl(KXCTL_PROGRAM, "kxctl", "vf", "list", nullptr);
            _exit(127);
        }
        for (int tries = 0; tries < 1000 && fs::is_empty(temporary()); ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));  // until it waits
        return child;
    }

    // The number of the signal that ended a child.
    static int end_by(pid_t child, int signal) {
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    test::Result list_machines() {
        const auto attached = host.attach();
        test::Setup setup;
        setup.environment = {"TMPDIR=" + temporary().string()};
        return test::run({"vm", "list"}, setup);
    }

private:
    const test::ScratchDirectory root_;
};

TEST_F(ScratchDirectory, IsGoneAfterACommand) {
    EXPECT_EQ(list_machines().exit, 0);
    EXPECT_TRUE(fs::is_empty(temporary()));
}

TEST_F(ScratchDirectory, IsGoneWhenASignalEndsTheCommand) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const pid_t child = start_waiting();
        ASSERT_FALSE(fs::is_empty(temporary()));
        for (const fs::directory_entry& directory : fs::directory_iterator(temporary())) {
            std::ofstream(directory.path() / "domain.xml") << "left by the library";
        }
        EXPECT_EQ(end_by(child, signal), signal);
        EXPECT_TRUE(fs::is_empty(temporary())) << signal;
    }
}

TEST_F(ScratchDirectory, OfAKilledCommandIsRemovedByTheNextOne) {
    const pid_t child = start_waiting();
    EXPECT_EQ(list_machines().exit, 0);
    EXPECT_FALSE(fs::is_empty(temporary())) << "the directory of a command that goes on";
    EXPECT_EQ(end_by(child, SIGKILL), SIGKILL);
    EXPECT_FALSE(fs::is_empty(temporary()));
    EXPECT_EQ(list_machines().exit, 0);
    EXPECT_TRUE(fs::is_empty(temporary()));
}

}  // namespace
