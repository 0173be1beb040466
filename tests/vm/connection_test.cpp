// The connection to the hypervisor. Each test runs in a process that has not opened it yet.
#include <fcntl.h>
#include <unistd.h>

#include "vm/allocator.hpp"
#include "vm/fake_host.hpp"

namespace {

using test::FakeDomain;
using test::host;
using test::in_fresh_process;
using testing::ElementsAre;
using testing::IsEmpty;

// -1 when nothing is thrown.
int thrown_by_get_connection() {
    try {
        VMUtils::getConnection();
    } catch (int thrown) {
        return thrown;
    }
    return -1;
}

TEST(Connection, IsOpenedForTheDefaultHypervisorWithDefaultAuthentication) {
    const std::string printed = in_fresh_process([] {
        EXPECT_NE(VMUtils::getConnection(), nullptr);
        EXPECT_THAT(
            host().journal,
            ElementsAre("virConnectOpenAuth default default 0", "virConnectGetURI"));
    });
    EXPECT_EQ(printed, "");
}

// What the library prints would be written into the connection.
TEST(Connection, IsNoStandardStreamOfAnAgentThatClosedIt) {
    in_fresh_process([] {
        close(STDIN_FILENO);
        host().on_libvirt = [] {
            const int opened = open("/dev/null", O_RDWR | O_CLOEXEC);
            EXPECT_GT(opened, STDERR_FILENO);
            close(opened);
        };
        EXPECT_NE(VMUtils::getConnection(), nullptr);
        EXPECT_EQ(host().journal.size(), 2U);
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "closed as before";
    });
}

TEST(Connection, IsOpenedOnceForAllObjectsOfTheProcess) {
    in_fresh_process([] {
        const virConnectPtr first = VMUtils::getConnection();
        host().journal.clear();
        {
            VMUtils one;
            VMUtils other;
            EXPECT_EQ(one.getConnection(), first);
            EXPECT_EQ(other.getConnection(), first);
        }
        EXPECT_EQ(VMUtils::getConnection(), first);
        EXPECT_THAT(host().journal, ElementsAre("Initialize", "Initialize"))
            << "neither opened again, nor asked for its URI, nor closed";
    });
}

TEST(Connection, ASecondObjectUsesTheOneThatTheFirstOneOpened) {
    in_fresh_process([] {
        _KVMInfo* records = nullptr;
        int count = -1;
        VMUtils first;
        EXPECT_EQ(first.listVMs(&records, &count), 0);
        std::free(records);
        VMUtils second;
        EXPECT_EQ(second.listVMs(&records, &count), 0);
        std::free(records);
        EXPECT_EQ(host().counts().at("virConnectOpenAuth"), 1);
        EXPECT_EQ(host().counts().at("virConnectGetURI"), 1);
    });
}

TEST(Connection, ThrowsAndTriesAgainWhenItCannotBeOpened) {
    const std::string printed = in_fresh_process([] {
        host().results["virConnectOpenAuth"] = 0;
        EXPECT_EQ(thrown_by_get_connection(), -128);
        EXPECT_EQ(thrown_by_get_connection(), -128);
        EXPECT_THAT(
            host().journal,
            ElementsAre(
                "virConnectOpenAuth default default 0", "virConnectOpenAuth default default 0"));
        host().results.clear();
        EXPECT_NE(VMUtils::getConnection(), nullptr);
    });
    EXPECT_EQ(printed, "No connection to hypervisor\nNo connection to hypervisor\n");
}

TEST(Connection, WithoutAUriIsKeptAndNotAskedAgain) {
    const std::string printed = in_fresh_process([] {
        host().results["virConnectGetURI"] = 0;
        EXPECT_EQ(thrown_by_get_connection(), -128);
        host().journal.clear();
        EXPECT_EQ(thrown_by_get_connection(), -1);
        EXPECT_NE(VMUtils::getConnection(), nullptr);
        EXPECT_THAT(host().journal, IsEmpty());
    });
    EXPECT_EQ(printed, "Failed to get URI for hypervisor connection\n");
}

TEST(Connection, TextOfTheUriStaysAllocated) {
    in_fresh_process([] {
        VMUtils::getConnection();
        ASSERT_EQ(host().given_texts.size(), 1U);
        EXPECT_EQ(host().texts_released(), 0);
    });
}

TEST(Connection, MembersAnswerItsAbsenceWithoutAnException) {
    const std::string printed = in_fresh_process([] {
        host().results["virConnectOpenAuth"] = 0;
        VMUtils vm;
        unsigned char uuid[16] = {};
        EXPECT_EQ(vm.getDomainPtr(uuid), nullptr);
        FakeDomain domain{.name = "one"};
        EXPECT_EQ(vm.VMLaunch(test::handle(domain)), 1);
        EXPECT_EQ(host().counts().at("virConnectOpenAuth"), 2);
        EXPECT_THAT(host().logged(), IsEmpty());
    });
    EXPECT_EQ(printed, "No connection to hypervisor\nNo connection to hypervisor\n");
}

}  // namespace
