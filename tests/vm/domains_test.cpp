// The list of domains.
#include <cstddef>
#include <cstring>

#include "vm/allocator.hpp"
#include "vm/fake_host.hpp"

namespace {

using test::FakeDomain;
using test::host;
using test::numbered_uuid;
using test::printed;
using test::Ran;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

struct Listed {
    int result = -99;
    int count = -99;
    _KVMInfo* records = nullptr;
    std::string printed;

    Listed() = default;
    Listed(const Listed&) = delete;
    Listed& operator=(const Listed&) = delete;
    ~Listed() { std::free(records); }

    [[nodiscard]] std::string name(int k) const {
        return {records[k].name, strnlen(records[k].name, sizeof records[k].name)};
    }
    [[nodiscard]] std::string os_type(int k) const {
        return {records[k].osType, strnlen(records[k].osType, sizeof records[k].osType)};
    }
    [[nodiscard]] test::Uuid uuid(int k) const {
        test::Uuid uuid;
        std::memcpy(uuid.data(), records[k].uuid, uuid.size());
        return uuid;
    }
};

class ListVMs : public test::VmTest {
protected:
    static void list(Listed& listed) {
        listed.printed =
            printed([&] { listed.result = vm().listVMs(&listed.records, &listed.count); });
    }

    static void answer_domstate_with(const std::string& output, int result = 0) {
        host().run = [=](const std::string&) { return Ran{result, output}; };
    }

    // The failure of a gathering step: result, messages, and the caller's places.
    static void expect_gathering_failure(const std::string& message) {
        Listed listed;
        list(listed);
        EXPECT_EQ(listed.result, 1);
        EXPECT_THAT(host().logged(), ElementsAre(message, "ListVMs: Error getting domain details"));
        EXPECT_EQ(listed.records, nullptr) << "untouched";
        EXPECT_EQ(listed.count, -99) << "untouched";
        EXPECT_EQ(host().texts_released(), 0);
    }
};

TEST_F(ListVMs, RecordIsLaidOutForAgentsThatIndexIt) {
    EXPECT_EQ(sizeof(_KVMInfo), 408U);
    EXPECT_EQ(offsetof(_KVMInfo, id), 0U);
    EXPECT_EQ(offsetof(_KVMInfo, uuid), 4U);
    EXPECT_EQ(offsetof(_KVMInfo, name), 20U);
    EXPECT_EQ(offsetof(_KVMInfo, osType), 276U);
    EXPECT_EQ(offsetof(_KVMInfo, state), 404U);
}

TEST_F(ListVMs, MakesTheseCallsInThisOrder) {
    host().add({.name = "off1"});
    host().add({.name = "on1", .id = 7});
    host().add({.name = "off2"});
    host().add({.name = "on2", .id = 3});
    answer_domstate_with("running\n\n");
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.printed, "Attempting to connect to hypervisor\n  off1\n  off2\n");
    EXPECT_THAT(
        host().journal, ElementsAreArray({
                            "virConnectNumOfDomains",         "virConnectNumOfDefinedDomains",
                            "virConnectListDefinedDomains 2", "virConnectListDomains 2",
                            "virDomainLookupByID 7",          "virDomainGetOSType on1",
                            "virDomainGetUUID on1",           "virDomainGetName on1",
                            "virDomainGetName on1",           "run /usr/bin/virsh domstate on1",
                            "virDomainLookupByID 3",          "virDomainGetOSType on2",
                            "virDomainGetUUID on2",           "virDomainGetName on2",
                            "virDomainGetName on2",           "run /usr/bin/virsh domstate on2",
                            "virDomainLookupByName off1",     "virDomainGetUUID off1",
                            "virDomainGetOSType off1",        "virDomainLookupByName off2",
                            "virDomainGetUUID off2",          "virDomainGetOSType off2",
                        }));
}

TEST_F(ListVMs, FillsRunningDomainsFirstThenTheOthers) {
    host().add({.name = "off", .uuid = numbered_uuid(1), .os_type = "xen"});
    host().add({.name = "on", .id = 7, .uuid = numbered_uuid(2), .os_type = "hvm"});
    answer_domstate_with("paused\n");
    Listed listed;
    list(listed);
    ASSERT_EQ(listed.count, 2);
    EXPECT_EQ(listed.records[0].id, 7);
    EXPECT_EQ(listed.name(0), "on");
    EXPECT_EQ(listed.uuid(0), numbered_uuid(2));
    EXPECT_EQ(listed.os_type(0), "hvm");
    EXPECT_EQ(listed.records[0].state, 3);
    EXPECT_EQ(listed.records[1].id, -1);
    EXPECT_EQ(listed.name(1), "off");
    EXPECT_EQ(listed.uuid(1), numbered_uuid(1));
    EXPECT_EQ(listed.os_type(1), "xen");
    EXPECT_EQ(listed.records[1].state, 5) << "without asking virsh";
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(ListVMs, GivesAZeroLengthArrayWhenThereAreNoDomains) {
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.count, 0);
    EXPECT_NE(listed.records, nullptr);
    EXPECT_EQ(listed.printed, "Attempting to connect to hypervisor\n");
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "virConnectNumOfDomains", "virConnectNumOfDefinedDomains",
                            "virConnectListDefinedDomains 0", "virConnectListDomains 0"));
}

TEST_F(ListVMs, NoRunningDomainIsNoError) {
    host().add({.name = "off"});
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.count, 1);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(ListVMs, StateOfARunningIdMayBeShutOffByNow) {
    host().add({.name = "on", .id = 1});
    answer_domstate_with("shut off\n");
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.records[0].id, 1);
    EXPECT_EQ(listed.records[0].state, 5);
}

TEST_F(ListVMs, StateThatVirshDoesNotTellStaysZero) {
    host().add({.name = "on", .id = 1});
    answer_domstate_with("running\n", 1);
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.records[0].state, 0);
}

TEST_F(ListVMs, ADefinedDomainThatCannotBeLookedUpKeepsItsNameAlone) {
    host().add({.name = "gone", .uuid = numbered_uuid(1), .listed_only = true});
    host().add({.name = "here", .uuid = numbered_uuid(2)});
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.records[0].id, -1);
    EXPECT_EQ(listed.name(0), "gone");
    EXPECT_EQ(listed.uuid(0), test::Uuid{});
    EXPECT_EQ(listed.os_type(0), "");
    EXPECT_EQ(listed.records[0].state, 0);
    EXPECT_EQ(listed.records[1].state, 5);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(ListVMs, ARunningDomainThatCannotBeLookedUpEndsTheListWithWhatIsFilled) {
    host().add({.name = "on1", .id = 1});
    host().add({.name = "on2", .id = 2, .listed_only = true});
    host().add({.name = "on3", .id = 3});
    host().add({.name = "off"});
    answer_domstate_with("running\n");
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 1);
    EXPECT_THAT(host().logged(), ElementsAre("ListVMs: Unable to get the domain information"));
    ASSERT_EQ(listed.count, 4);
    EXPECT_EQ(listed.name(0), "on1");
    EXPECT_EQ(listed.records[0].state, 1);
    EXPECT_EQ(listed.records[1].id, 0);
    EXPECT_EQ(listed.name(3), "");
    EXPECT_EQ(host().journal.back(), "log 2 4 ListVMs: Unable to get the domain information");
}

TEST_F(ListVMs, ANameThatFillsItsFieldHasNoTerminator) {
    host().add({.name = std::string(256, 'r'), .id = 1, .os_type = std::string(128, 'o')});
    host().add({.name = std::string(256, 'd'), .os_type = std::string(128, 'x')});
    Listed listed;
    list(listed);
    ASSERT_EQ(listed.count, 2);
    EXPECT_EQ(listed.records[0].name[255], 'r');
    EXPECT_EQ(listed.records[0].osType[127], 'o');
    EXPECT_EQ(listed.records[1].name[255], 'd');
    EXPECT_EQ(listed.records[1].osType[127], 'x');
    EXPECT_EQ(listed.records[0].state, 0);
    EXPECT_EQ(listed.records[1].state, 5);
}

TEST_F(ListVMs, NamesOfThousandsOfCharactersAreCutInRecordsAndWholeInCommands) {
    const std::string long_name(5000, 'n');
    host().add({.name = long_name, .id = 1, .os_type = std::string(5000, 'o')});
    host().add({.name = long_name});
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.name(0), std::string(256, 'n'));
    EXPECT_EQ(listed.os_type(0), std::string(128, 'o'));
    EXPECT_EQ(listed.name(1), std::string(256, 'n'));
    EXPECT_THAT(host().commands(), ElementsAre("/usr/bin/virsh domstate " + long_name));
}

TEST_F(ListVMs, PrintsNamesAsTheyAre) {
    host().add({.name = "%s%n"});
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.printed, "Attempting to connect to hypervisor\n  %s%n\n");
}

TEST_F(ListVMs, TextsThatLibvirtDoesNotHaveLeaveTheirFieldsEmpty) {
    host().add({.name = "on", .id = 1});
    host().results = {{"virDomainGetOSType", 0}, {"virDomainGetName", 0}};
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.records[0].id, 1);
    EXPECT_EQ(listed.name(0), "");
    EXPECT_EQ(listed.os_type(0), "");
    EXPECT_EQ(listed.records[0].state, 0);
    EXPECT_THAT(host().commands(), IsEmpty());
}

TEST_F(ListVMs, LogsAMissingConnection) {
    host().refuse_connection_from = 1;
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 1);
    EXPECT_EQ(listed.printed, "Attempting to connect to hypervisor\n");
    EXPECT_THAT(host().journal, ElementsAre("log 2 4 ListVMs: LibVirt connection failure"));
    EXPECT_EQ(listed.count, -99);
}

TEST_F(ListVMs, LogsActiveDomainsThatCannotBeCounted) {
    host().results["virConnectNumOfDomains"] = -1;
    expect_gathering_failure("ListVMs: Failed to get number of active domains");
    EXPECT_EQ(host().counts().count("virConnectNumOfDefinedDomains"), 0U);
    EXPECT_EQ(test::library_blocks(), 0U);
}

TEST_F(ListVMs, LogsInactiveDomainsThatCannotBeCounted) {
    host().results["virConnectNumOfDefinedDomains"] = -1;
    expect_gathering_failure("ListVMs: Failed to get number of inactive domains");
    EXPECT_EQ(host().counts().count("virConnectListDefinedDomains"), 0U);
    EXPECT_EQ(test::library_blocks(), 0U);
}

TEST_F(ListVMs, EveryNegativeCountIsAFailure) {
    host().results["virConnectNumOfDomains"] = -3;
    expect_gathering_failure("ListVMs: Failed to get number of active domains");
}

TEST_F(ListVMs, LogsNoMemoryForTheNamesWithATrailingBlank) {
    host().add({.name = "off"});
    test::fail_library_allocation(1);
    expect_gathering_failure("ListVMs: Memory Allocation Problem ");
    EXPECT_EQ(host().counts().count("virConnectListDefinedDomains"), 0U);
}

TEST_F(ListVMs, LogsNamesThatCannotBeListedAndKeepsTheirArray) {
    host().add({.name = "off"});
    host().results["virConnectListDefinedDomains"] = -1;
    expect_gathering_failure("ListVMs: Could not get list of defined domains from hypervisor");
    EXPECT_EQ(host().counts().count("virConnectListDomains"), 0U);
    EXPECT_EQ(test::library_blocks(), 1U);
}

TEST_F(ListVMs, LogsNoMemoryForTheIdsWithoutTrailingBlankAndKeepsTheNames) {
    host().add({.name = "off"});
    host().add({.name = "on", .id = 1});
    test::fail_library_allocation(2);
    expect_gathering_failure("ListVMs: Memory Allocation Problem");
    EXPECT_EQ(host().counts().count("virConnectListDomains"), 0U);
    EXPECT_EQ(test::library_blocks(), 1U);
}

TEST_F(ListVMs, NoMemoryForTheRecordsGivesNoneOfThem) {
    host().add({.name = "on", .id = 1});
    test::fail_library_allocation(3);
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 1);
    EXPECT_EQ(listed.records, nullptr);
    EXPECT_EQ(listed.count, 0);
}

TEST_F(ListVMs, ResultOfListingTheIdsIsNotLookedAt) {
    host().results["virConnectListDomains"] = -1;
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(ListVMs, IdsThatWereAnnouncedAndDidNotComeAreLookedUpAsZero) {
    host().add({.name = "on", .id = 4});
    host().results["virConnectNumOfDomains"] = 2;
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 1);
    EXPECT_EQ(listed.count, 2);
    EXPECT_EQ(listed.name(0), "on");
    EXPECT_EQ(host().counts().at("virDomainLookupByID"), 2);
    EXPECT_THAT(host().logged(), ElementsAre("ListVMs: Unable to get the domain information"));
}

TEST_F(ListVMs, CountsTheNamesThatCameNotThoseThatWereAnnounced) {
    host().add({.name = "off"});
    host().results["virConnectNumOfDefinedDomains"] = 5;
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.count, 1);
    EXPECT_EQ(listed.printed, "Attempting to connect to hypervisor\n  off\n");
}

TEST_F(ListVMs, NamesThatClaimToComeButDoNotAreNotRead) {
    host().results = {{"virConnectNumOfDefinedDomains", 2}, {"virConnectListDefinedDomains", 7}};
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.count, 2);
    EXPECT_EQ(listed.records[1].id, -1);
    EXPECT_EQ(listed.name(1), "");
    EXPECT_EQ(listed.printed, "Attempting to connect to hypervisor\n");
}

TEST_F(ListVMs, ReleasesNothingButLeavesNothingMoreBehind) {
    host().add({.name = "off"});
    host().add({.name = "on", .id = 1});
    answer_domstate_with("running");
    Listed listed;
    list(listed);
    EXPECT_EQ(host().counts().count("virDomainFree"), 0U);
    EXPECT_EQ(host().texts_released(), 0) << "names and operating system types";
    EXPECT_EQ(test::library_blocks(), 3U) << "names, ids, and the records";
}

TEST_F(ListVMs, NullPlacesAreRefusedBeforeAnythingHappens) {
    _KVMInfo* records = nullptr;
    int count = 0;
    EXPECT_EQ(vm().listVMs(nullptr, &count), 1);
    EXPECT_EQ(vm().listVMs(&records, nullptr), 1);
    EXPECT_THAT(host().journal, IsEmpty());
}

TEST_F(ListVMs, FiveHundredDomainsCostNoMoreCallsThanTheyNeed) {
    constexpr int kRunning = 300;
    constexpr int kDefined = 200;
    for (int k = 0; k < kRunning + kDefined; ++k) {
        host().add(
            {.name = "vm" + std::to_string(k),
             .id = k < kRunning ? k + 1 : -1,
             .uuid = numbered_uuid(k % 8)});
    }
    answer_domstate_with("running");
    Listed listed;
    list(listed);
    EXPECT_EQ(listed.count, kRunning + kDefined);
    EXPECT_EQ(listed.records[kRunning + kDefined - 1].state, 5);
    EXPECT_EQ(
        host().counts(), (std::map<std::string, int>{
                             {"virConnectNumOfDomains", 1},
                             {"virConnectNumOfDefinedDomains", 1},
                             {"virConnectListDefinedDomains", 1},
                             {"virConnectListDomains", 1},
                             {"virDomainLookupByID", kRunning},
                             {"virDomainLookupByName", kDefined},
                             {"virDomainGetOSType", kRunning + kDefined},
                             {"virDomainGetUUID", kRunning + kDefined},
                             {"virDomainGetName", 2 * kRunning},  // record and command
                             {"run", kRunning},
                         }));
}

}  // namespace
