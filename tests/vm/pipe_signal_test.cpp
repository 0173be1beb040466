// A connection whose daemon ended: libvirt writes to a closed pipe. The signal of that stays inside
// the library.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "vm/fake_host.hpp"

namespace {

using test::host;
using test::in_fresh_process;
using test::numbered_uuid;

sigset_t set_of(int number) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    return set;
}

bool is_pending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

bool is_blocked() {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
}

void write_to_a_closed_pipe() {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    close(ends[1]);
}

class PipeSignal : public test::VmTest {
protected:
    PipeSignal() {
        host().add(
            {.name = "one",
             .id = 4,
             .uuid = numbered_uuid(1),
             .live = "<domain><interface>bridge</interface></domain>",
             .inactive = "<domain/>"});
        host().add({.name = "two", .uuid = numbered_uuid(2)});
        host().run = [](const std::string&) {
            EXPECT_FALSE(is_blocked()) << "commands inherit the agent's signals";
            return test::Ran{0, "running"};
        };
    }

    // Every call of libvirt there is. The connection is opened in between.
    static void use_everything() {
        _KVMInfo* records = nullptr;
        int count = 0;
        vm().listVMs(&records, &count);
        _VF* vfs = nullptr;
        vm().listVFsForVM(4, &vfs);
        _interfaceInfo* interfaces = nullptr;
        vm().listInterfacesForVM(4, &interfaces, &count);
        vm().dettachInterfaceFromVM(4, {});
        vm().attachVFToVM(4, {});
        std::string uuid = test::digits(numbered_uuid(1));
        vm().dettachVFFromVM(uuid.data(), {});
        for (int operation = 0; operation < 5; ++operation) {
            std::string time = "0";
            vm().VMStateOperation(uuid.data(), operation, time.data());
        }
        vm().VMLaunch(test::handle(host().domains[1]));
    }
};

TEST_F(PipeSignal, OfLibvirtDoesNotEndTheAgent) {
    in_fresh_process([] {
        std::signal(SIGPIPE, SIG_DFL);
        host().on_libvirt = [] {
            EXPECT_TRUE(is_blocked());
            write_to_a_closed_pipe();
        };
        use_everything();
        EXPECT_GE(host().counts().size(), 18U) << "every function that the class uses";
        EXPECT_FALSE(is_blocked());
        EXPECT_FALSE(is_pending());
    });
}

TEST_F(PipeSignal, OfLibvirtDoesNotReachTheAgentsHandler) {
    in_fresh_process([] {
        static int handled = 0;
        std::signal(SIGPIPE, [](int) { ++handled; });
        host().on_libvirt = write_to_a_closed_pipe;
        use_everything();
        EXPECT_EQ(handled, 0);
        raise(SIGPIPE);
        EXPECT_EQ(handled, 1);
    });
}

TEST_F(PipeSignal, ThatWasPendingBeforeStaysPending) {
    in_fresh_process([] {
        const sigset_t pipe_signal = set_of(SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe_signal, nullptr);
        raise(SIGPIPE);
        vm().VMReboot(test::handle(host().domains[0]));
        EXPECT_TRUE(is_pending());
        host().on_libvirt = write_to_a_closed_pipe;
        vm().VMReboot(test::handle(host().domains[0]));
        EXPECT_TRUE(is_pending());
        EXPECT_TRUE(is_blocked()) << "as the agent had it";
    });
}

TEST_F(PipeSignal, IsHandledWithoutTouchingErrno) {
    errno = ERANGE;
    vm().VMReboot(test::handle(host().domains[0]));
    EXPECT_EQ(errno, ERANGE);
    host().on_libvirt = write_to_a_closed_pipe;
    vm().VMReboot(test::handle(host().domains[0]));
    EXPECT_EQ(errno, EPIPE) << "libvirt's own";
}

}  // namespace
