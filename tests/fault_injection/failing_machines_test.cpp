// Every call that a member of VMUtils makes fails once, on a host with machines: the member gives
// the answer that it gives without the failure, or one of its failures, and keeps nothing open.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/vmutils.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <kxsim/host.hpp>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>
#include <xercesc/util/OutOfMemoryException.hpp>

#include "fault_injection/entry_points.hpp"
#include "fault_injection/failure.hpp"
#include "fault_injection/fired_kinds.hpp"

#if defined(__SANITIZE_ADDRESS__)
// The class leaves handles and texts of libvirt allocated; other tests distinguish them from leaks.
extern "C" KX_EXPORT const char* __asan_default_options() { return "detect_leaks=0"; }
#endif

namespace {

using test::Failure;

constexpr unsigned kPatience = 120;             // seconds; a call that takes longer hangs
constexpr char kProgram[] = "fault_injection";  // this one; what it starts is spared

// Allocations of libvirt are left out: its own library ends the process when one fails.
constexpr Failure kFailures[] = {
    {"libvirt", EIO},
    {"fopen", EACCES},
    {"fclose", ENOSPC},
    {"fflush", ENOSPC},
    {"open", EACCES},
    {"read", EIO},
    {"calloc", ENOMEM, "libkxlinhw"},
    {"malloc", ENOMEM, "libstdc++"},
    {"malloc", ENOMEM, "libstdc++", 0, 4},  // nor for the repair
};

// The first call of a kind fails, and later calls at growing distances; all calls with KX_THOROUGH
// set (tests/fault_injection/faults.sh). With a sanitizer only the first one fails.
constexpr unsigned kNever = 0xFFFFFFFF;
unsigned next_position(unsigned nth) {
    static const bool all = std::getenv("KX_THOROUGH") != nullptr;
    if (all) {
        return nth + 1;
    }
    return test::kSanitized ? kNever : 3 * nth;
}

bool is_allocation(const Failure& failure) { return *failure.from != '\0'; }

// --- The members, each called as an agent could ---

constexpr char kOn[] = "11223344556647889900aabbccddeeff";
constexpr char kOff[] = "11223344556647889900aabbccddee00";
constexpr char kTwo[] = "11223344556647889900aabbccddee02";

std::array<char, 33> text_of(const char* digits) {
    std::array<char, 33> text{};
    std::strncpy(text.data(), digits, text.size() - 1);
    return text;
}

virDomainPtr find(VMUtils& vm, const char* digits) {
    std::array<unsigned char, 16> uuid{};
    for (std::size_t k = 0; k < uuid.size(); ++k) {
        uuid[k] =
            static_cast<unsigned char>(std::stoul(std::string(digits + 2 * k, 2), nullptr, 16));
    }
    return vm.getDomainPtr(uuid.data());
}

template <class Node>
std::string count_and_free(Node* first) {
    int count = 0;
    while (first != nullptr) {
        Node* const next = first->next;
        std::free(first);
        first = next;
        ++count;
    }
    return std::to_string(count);
}

std::string operate(VMUtils& vm, const char* digits, int operation) {
    auto uuid = text_of(digits);
    char time[] = "0";
    errno = 0;
    return std::to_string(vm.VMStateOperation(uuid.data(), operation, time));
}

_interfaceInfo an_interface() {
    _interfaceInfo info{};
    info.mac[0] = 2;
    std::strcpy(info.type, "bridge");
    std::strcpy(info.bridge, "br0");
    return info;
}

constexpr _VF kFree{0, 4, 1, 3};
constexpr _VF kTaken{0, 4, 1, 0};

struct Member {
    const char* name;
    std::string (*call)(VMUtils& vm);
    std::set<std::string> failures;  // its possible answers when one of its calls failed
};

const std::set<std::string> kOne = {"1"};
constexpr char kNoRoot[] = "empty XML document";  // the description did not get into its file
const std::set<std::string> kMinusOne = {"-1", kNoRoot};

const Member kMembers[] = {
    {"getDomainPtr",
     [](VMUtils& vm) { return std::string(find(vm, kOn) == nullptr ? "none" : "found"); },
     {"none"}},
    // A machine that could not be read keeps the known fields.
    {"listVMs",
     [](VMUtils& vm) {
         _KVMInfo* records = nullptr;
         int count = 0;
         const int result = vm.listVMs(&records, &count);
         std::free(records);
         return std::to_string(result) + " " + std::to_string(count);
     },
     {"1 0", "1 3"}},
    {"getDomainState",
     [](VMUtils& vm) {
         int state = 0;
         const int result = vm.getDomainState(find(vm, kOn), &state);
         return std::to_string(result) + " " + std::to_string(state);
     },
     {"-1 0"}},
    {"VMStateOperation start", [](VMUtils& vm) { return operate(vm, kOff, KX_VM_OP_START); }, kOne},
    {"VMStateOperation suspend", [](VMUtils& vm) { return operate(vm, kOn, KX_VM_OP_SUSPEND); },
     kOne},
    {"VMStateOperation shut down", [](VMUtils& vm) { return operate(vm, kOn, KX_VM_OP_SHUT_DOWN); },
     kOne},
    {"VMStateOperation reboot", [](VMUtils& vm) { return operate(vm, kOn, KX_VM_OP_REBOOT); },
     kOne},
    {"VMStateOperation resume", [](VMUtils& vm) { return operate(vm, kTwo, KX_VM_OP_RESUME); },
     kOne},
    {"VMLaunch", [](VMUtils& vm) { return std::to_string(vm.VMLaunch(find(vm, kOff))); }, kOne},
    {"VMResume", [](VMUtils& vm) { return std::to_string(vm.VMResume(find(vm, kTwo))); }, kOne},
    {"VMSuspend", [](VMUtils& vm) { return std::to_string(vm.VMSuspend(find(vm, kOn), 0)); }, kOne},
    {"VMReboot", [](VMUtils& vm) { return std::to_string(vm.VMReboot(find(vm, kOn))); }, kOne},
    {"VMShutdown", [](VMUtils& vm) { return std::to_string(vm.VMShutdown(find(vm, kOn))); }, kOne},
    {"getCardsInfo", [](VMUtils& vm) { return count_and_free(vm.getCardsInfo()); }, {"0"}},
    {"getVFsFromDomainInfo",
     [](VMUtils& vm) {
         char path[] = "machine.xml";
         return count_and_free(vm.getVFsFromDomainInfo(path));
     },
     {"0"}},
    {"listVFsForVM of a domain",
     [](VMUtils& vm) {
         _VF* list = nullptr;
         _VF** place = &list;
         const int result = vm.listVFsForVM(find(vm, kOn), place);
         std::free(list);
         return std::to_string(result);
     },
     kMinusOne},
    {"listVFsForVM of a UUID",
     [](VMUtils& vm) {
         auto uuid = text_of(kOn);
         _VF* list = nullptr;
         const int result = vm.listVFsForVM(uuid.data(), &list);
         std::free(list);
         return std::to_string(result);
     },
     kMinusOne},
    {"listVFsForVM of an id",
     [](VMUtils& vm) {
         _VF* list = nullptr;
         const int result = vm.listVFsForVM(1, &list);
         std::free(list);
         return std::to_string(result);
     },
     kMinusOne},
    {"listVFsForVM of the host",
     [](VMUtils& vm) {
         _VF* list = nullptr;
         const int result = vm.listVFsForVM(0, &list);
         std::free(list);
         return std::to_string(result);
     },
     {"-1", "1", "0"}},  // one of the two commands failed: only the other one's count
    {"getXMLDescForVF",
     [](VMUtils& vm) {
         char* text = nullptr;
         const int result = vm.getXMLDescForVF(kFree, &text);
         const std::string answer = text == nullptr ? "none" : text;
         std::free(text);
         return std::to_string(result) + " " + answer;
     },
     {"0 none", "1 none"}},
    {"attachVFToVM of an id", [](VMUtils& vm) { return std::to_string(vm.attachVFToVM(1, kFree)); },
     kOne},
    {"attachVFToVM of a UUID",
     [](VMUtils& vm) {
         auto uuid = text_of(kOn);
         return std::to_string(vm.attachVFToVM(uuid.data(), kFree));
     },
     kOne},
    {"dettachVFFromVM of an id",
     [](VMUtils& vm) { return std::to_string(vm.dettachVFFromVM(1, kTaken)); }, kOne},
    {"dettachVFFromVM of a UUID",
     [](VMUtils& vm) {
         auto uuid = text_of(kOn);
         return std::to_string(vm.dettachVFFromVM(uuid.data(), kTaken));
     },
     kOne},
    {"attachBrdgToVM",
     [](VMUtils& vm) {
         char bridge[] = "br0";
         return std::to_string(vm.attachBrdgToVM(1, bridge));
     },
     kOne},
    {"attachInterfaceToVM",
     [](VMUtils& vm) { return std::to_string(vm.attachInterfaceToVM(1, an_interface())); }, kOne},
    {"dettachInterfaceFromVM",
     [](VMUtils& vm) { return std::to_string(vm.dettachInterfaceFromVM(1, an_interface())); },
     kOne},
    {"listInterfacesForVM",
     [](VMUtils& vm) {
         _interfaceInfo* list = nullptr;
         int count = 0;
         const int result = vm.listInterfacesForVM(1, &list, &count);
         std::free(list);
         return std::to_string(result) + " " + std::to_string(count);
     },
     {"1 0", kNoRoot}},
    {"getXMLDescForInterface",
     [](VMUtils& vm) {
         char* text = nullptr;
         const int result = vm.getXMLDescForInterface(an_interface(), &text);
         const std::string answer = text == nullptr ? "none" : text;
         std::free(text);
         return std::to_string(result) + " " + answer;
     },
     {"1 none"}},
};

// --- The host ---

constexpr char kDescription[] =
    "<domain><devices><hostdev mode='subsystem' type='pci'><source>"
    "<address domain='0' bus='4' slot='1' function='0'/></source></hostdev></devices></domain>\n";

// A host with three machines, in a separate working directory.
class MachineHost {
public:
    MachineHost() : attached_(host.attach()) {
        std::filesystem::current_path(host.root());
        std::FILE* const file = std::fopen("machine.xml", "w");
        std::fputs(kDescription, file);
        std::fclose(file);
        host.adapter({.chip = "Q4", .location = "04:00.4", .virtual_functions = 8});
        host.interface({.name = "br0"});
        host.machine(
            {.name = "one",
             .uuid = "11223344-5566-4788-9900-aabbccddeeff",
             .state = "running",
             .vfs = {"04:01.0"},
             .bridges = {"br0"}});
        host.machine(
            {.name = "two", .uuid = "11223344-5566-4788-9900-aabbccddee02", .state = "paused"});
        host.machine({.name = "off", .uuid = "11223344-5566-4788-9900-aabbccddee00"});
    }
    ~MachineHost() { std::filesystem::current_path("/"); }
    MachineHost(const MachineHost&) = delete;
    MachineHost& operator=(const MachineHost&) = delete;

    kxsim::Host host;

private:
    kxsim::Attached attached_;
};

std::string describe(const Member& member, const Failure& failure, unsigned nth) {
    return std::string(member.name) + ": " + test::describe(failure, nth);
}

constexpr char kOutOfMemory[] = "no memory";

// The answer of a member. Exceptions are not answers, except the one for missing memory.
std::string answer_of(const Member& member, VMUtils& vm) {
    const test::Silence silence;
    try {
        return member.call(vm);
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    } catch (const xercesc::OutOfMemoryException&) {
        return kOutOfMemory;
    } catch (const std::runtime_error& error) {
        return error.what();
    } catch (...) {
        return "an exception";
    }
}

class FailingMember : public testing::TestWithParam<Member> {
protected:
    void SetUp() override {
        if (!std::filesystem::exists("/usr/bin/virsh")) {
            GTEST_SKIP() << "virsh (libvirt-clients) is not installed";
        }
        alarm(kPatience);
        const MachineHost fresh;
        undisturbed_ = answer_of(GetParam(), vm());
    }
    void TearDown() override { alarm(0); }
    static void TearDownTestSuite() {
        std::printf("%u failures, %zu members\n", total_, std::size(kMembers));
        fired_.expect_all(kFailures);
    }

    // The connection stays with the process, from one test's host to the next.
    static VMUtils& vm() {
        static auto* const vm = new VMUtils;
        return *vm;
    }

    // Run the member with one failure; false when no call matched the failure.
    bool run(const Failure& failure, unsigned nth) {
        alarm(kPatience);
        MachineHost fresh;
        vm().getConnection();  // opened on this host: what it takes is another test
        const std::size_t before = test::held(fresh.host).descriptors;
        kxsim::FaultRule rule = fresh.host.fail(test::fault_of(failure, nth, kProgram));
        const std::string answer = answer_of(GetParam(), vm());
        rule.remove();
        const std::string what = describe(GetParam(), failure, nth) + " " + rule.struck();
        judge(answer, failure, what);
        EXPECT_LE(test::held(fresh.host).descriptors, before + stays_open(failure)) << what;
        const bool fired = rule.fired() > 0;
        if (fired) {
            ++total_;
            fired_.add(failure);
        }
        return fired;
    }

    void judge(const std::string& answer, const Failure& failure, const std::string& what) const {
        std::set<std::string> allowed = GetParam().failures;
        allowed.insert(undisturbed_);
        if (is_allocation(failure)) {
            allowed.insert(kOutOfMemory);
        }
        EXPECT_THAT(allowed, testing::Contains(answer)) << what;
    }

    // Xerces keeps a file open when memory runs out directly after opening it.
    static std::size_t stays_open(const Failure& failure) { return is_allocation(failure) ? 1 : 0; }

    std::string undisturbed_;
    static inline unsigned total_ = 0;
    static inline test::FiredKinds fired_;
};

TEST_P(FailingMember, GivesAnAnswerOfItsOwn) {
    EXPECT_THAT(GetParam().failures, testing::Not(testing::Contains(undisturbed_)));
    for (const Failure& failure : kFailures) {
        if (test::kSanitized && failure.error == EACCES) {
            continue;  // they meet what the other errors of files meet
        }
        for (unsigned nth = 1; nth != kNever && run(failure, nth) && !HasFailure();
             nth = next_position(nth)) {
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, FailingMember, testing::ValuesIn(kMembers), [](const auto& member) {
    std::string name = member.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

// In a process that has no connection yet.
TEST(FailingConnection, IsTheDocumentedException) {
    for (const char* function : {"virConnectOpenAuth", "virConnectGetURI"}) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(kPatience);
            MachineHost fresh;
            fresh.host.fail({.call = "libvirt", .error = EIO, .object = function});
            const test::Silence silence;
            try {
                VMUtils::getConnection();
            } catch (int thrown) {
                _exit(thrown == -128 && VMUtils::getConnection() != nullptr ? 0 : 1);
            }
            _exit(2);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << function;
    }
}

}  // namespace
