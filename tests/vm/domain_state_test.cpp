// Run state of one domain, and the operations that change it.
#include <cerrno>

#include "vm/fake_host.hpp"

namespace {

using test::FakeDomain;
using test::handle;
using test::host;
using test::numbered_uuid;
using test::printed;
using test::Ran;
using testing::ElementsAre;
using testing::IsEmpty;

class DomainState : public test::VmTest {
protected:
    struct Asked {
        int result;
        int state;
    };

    static Asked ask(const std::string& output, int result = 0) {
        host().run = [=](const std::string&) { return Ran{result, output}; };
        FakeDomain domain{.name = "one"};
        Asked asked{-99, -77};
        asked.result = vm().getDomainState(handle(domain), &asked.state);
        return asked;
    }
    static int state_of(const std::string& output) {
        const Asked asked = ask(output);
        EXPECT_EQ(asked.result, asked.state == -77 ? -1 : 0) << output;
        return asked.state;
    }
};

TEST_F(DomainState, IsAskedOfVirsh) {
    ask("running\n");
    EXPECT_THAT(
        host().journal, ElementsAre("virDomainGetName one", "run /usr/bin/virsh domstate one"));
}

TEST_F(DomainState, IsTheFirstWordOfThreeThatTheOutputHolds) {
    EXPECT_EQ(state_of("running\n\n"), 1);
    EXPECT_EQ(state_of("paused\n\n"), 3);
    EXPECT_EQ(state_of("shut off\n\n"), 5);
    EXPECT_EQ(state_of("<<shut off>>"), 5);
    EXPECT_EQ(state_of("paused running"), 1) << "the words' order, not the text's";
    EXPECT_EQ(state_of("shut off paused"), 3);
    EXPECT_EQ(state_of("shut off running"), 1);
}

TEST_F(DomainState, StaysUntouchedWithoutAWord) {
    for (const char* output :
         {"", "\n", "Running", "PAUSED", "shutoff", "shut  off", "in shutdown", "crashed",
          "idle"}) {
        EXPECT_EQ(state_of(output), -77) << output;
    }
}

TEST_F(DomainState, AFailingCommandsOutputCountsForNothing) {
    for (const int result : {1, -1, 127, 256}) {
        const Asked asked = ask("running\n", result);
        EXPECT_EQ(asked.result, -1);
        EXPECT_EQ(asked.state, -77);
    }
}

TEST_F(DomainState, ADomainWithoutANameHasNone) {
    FakeDomain domain{.name = "one"};
    host().results["virDomainGetName"] = 0;
    int state = -77;
    EXPECT_EQ(vm().getDomainState(handle(domain), &state), -1);
    EXPECT_EQ(vm().getDomainState(nullptr, &state), -1);
    EXPECT_EQ(state, -77);
    EXPECT_THAT(host().commands(), IsEmpty());
}

TEST_F(DomainState, NeedsAPlace) {
    FakeDomain domain{.name = "one"};
    EXPECT_EQ(vm().getDomainState(handle(domain), nullptr), -1);
}

TEST_F(DomainState, NamesStandBareInCommandsUnlessTheShellWouldActOnThem) {
    const auto command_for = [](const std::string& name) {
        FakeDomain domain{.name = name};
        host().journal.clear();
        int state = 0;
        vm().getDomainState(handle(domain), &state);
        return host().commands().at(0);
    };
    EXPECT_EQ(
        command_for("web-01_a.b+c:d@e%f,g/h"), "/usr/bin/virsh domstate web-01_a.b+c:d@e%f,g/h");
    EXPECT_EQ(command_for("two words"), "/usr/bin/virsh domstate 'two words'");
    EXPECT_EQ(command_for("$(reboot)"), "/usr/bin/virsh domstate '$(reboot)'");
    EXPECT_EQ(command_for("a;b"), "/usr/bin/virsh domstate 'a;b'");
    EXPECT_EQ(command_for("it's"), R"(/usr/bin/virsh domstate 'it'\''s')");
    EXPECT_EQ(command_for("\xC3\xA9t\xC3\xA9"), "/usr/bin/virsh domstate '\xC3\xA9t\xC3\xA9'");
    EXPECT_EQ(command_for(""), "/usr/bin/virsh domstate ''");
}

// virsh first reads a word as an id, then as a UUID, and only then as a name.
class AmbiguousName : public test::VmTest {
protected:
    static constexpr char kUuidText[] = "90919293-9495-9697-9899-9a9b9c9d9e9f";

    // The word that virsh got for a domain with this name.
    static std::string word_for(const std::string& name) {
        FakeDomain domain{.name = name, .uuid = numbered_uuid(1)};
        host().journal.clear();
        int state = 0;
        vm().getDomainState(handle(domain), &state);
        vm().VMSuspend(handle(domain), 0);
        vm().VMResume(handle(domain));
        const std::vector<std::string> commands = host().commands();
        const std::string start = "/usr/bin/virsh domstate ";
        const std::string word = commands.at(0).substr(start.size());
        EXPECT_EQ(commands.at(1), "/usr/bin/virsh suspend " + word);
        EXPECT_EQ(commands.at(2), "/usr/bin/virsh resume " + word);
        return word;
    }
};

TEST_F(AmbiguousName, ThatCouldBeAnIdIsReplacedByTheUuid) {
    for (const char* name :
         {"0", "1", "2147483648", "+1", " 1", "\t\n 07", "-0", "99999999999999999999999"}) {
        EXPECT_EQ(word_for(name), kUuidText) << name;
    }
}

TEST_F(AmbiguousName, ThatHasTheFormOfAUuidIsReplacedByTheUuid) {
    EXPECT_EQ(word_for("11223344-5566-7788-99aa-bbccddeeff01"), kUuidText);
    EXPECT_EQ(word_for("AABBCCDD-EEFF-aabb-CCDD-000000000000"), kUuidText);
}

TEST_F(AmbiguousName, IsNoneThatVirshCanOnlyTakeForAName) {
    for (const char* name :
         {"-1", "1a", "0x10", "1.", "a1", "11223344-5566-7788-99aa-bbccddeeff0g",
          "11223344-5566-7788-99aa-bbccddeeff0", "11223344-5566-7788-99aa-bbccddeeff012",
          "11223344_5566_7788_99aa_bbccddeeff01"}) {
        EXPECT_EQ(word_for(name), name);
    }
    for (const char* name : {"", " ", "1 ", "+ 1", "1 2"}) {
        EXPECT_EQ(word_for(name), "'" + std::string(name) + "'");
    }
    EXPECT_EQ(host().counts().count("virDomainGetUUID"), 0U);
}

TEST_F(AmbiguousName, WithoutAUuidIsNotHandedToVirsh) {
    FakeDomain domain{.name = "1"};
    host().results["virDomainGetUUID"] = -1;
    int state = -77;
    EXPECT_EQ(vm().getDomainState(handle(domain), &state), -1);
    EXPECT_EQ(vm().VMSuspend(handle(domain), 0), 1);
    EXPECT_EQ(vm().VMResume(handle(domain)), 1);
    EXPECT_THAT(host().commands(), IsEmpty());
}

TEST_F(AmbiguousName, LeavesErrnoAlone) {
    FakeDomain domain{.name = std::string(40, '9')};
    int state = 0;
    errno = 0;
    vm().getDomainState(handle(domain), &state);
    EXPECT_EQ(errno, 0) << "ERANGE would refuse a suspension";
}

class DomainOperation : public test::VmTest {
protected:
    FakeDomain domain_{.name = "one"};
    virDomainPtr handle_ = handle(domain_);
};

TEST_F(DomainOperation, LaunchCreatesTheDomain) {
    EXPECT_EQ(vm().VMLaunch(handle_), 0);
    EXPECT_THAT(host().journal, ElementsAre("virDomainCreate one"));
    EXPECT_EQ(host().connection_calls, 1);
}

TEST_F(DomainOperation, LaunchFailsWithLibvirtEitherWay) {
    for (const int result : {-1, 1}) {
        host().results["virDomainCreate"] = result;
        EXPECT_EQ(vm().VMLaunch(handle_), 1) << result;
    }
}

TEST_F(DomainOperation, LaunchNeedsAConnectionAndADomain) {
    EXPECT_EQ(vm().VMLaunch(nullptr), 1);
    host().refuse_connection_from = 1;
    EXPECT_EQ(vm().VMLaunch(handle_), 1);
    EXPECT_THAT(host().journal, IsEmpty());
}

TEST_F(DomainOperation, ResumeIsVirshs) {
    host().run = [](const std::string&) { return Ran{0, "error: whatever"}; };
    EXPECT_EQ(vm().VMResume(handle_), 0) << "the output is not looked at";
    EXPECT_THAT(
        host().journal, ElementsAre("virDomainGetName one", "run /usr/bin/virsh resume one"));
    host().run = [](const std::string&) { return Ran{1, "Domain 'one' resumed"}; };
    EXPECT_EQ(vm().VMResume(handle_), 1);
}

TEST_F(DomainOperation, SuspendIsVirshsWhateverTheTime) {
    EXPECT_EQ(vm().VMSuspend(handle_, 0x123456789ALL), 0);
    EXPECT_THAT(
        host().journal, ElementsAre("virDomainGetName one", "run /usr/bin/virsh suspend one"));
    host().run = [](const std::string&) { return Ran{-1, ""}; };
    EXPECT_EQ(vm().VMSuspend(handle_, 0), 1);
}

TEST_F(DomainOperation, ResumeAndSuspendNeedAName) {
    EXPECT_EQ(vm().VMResume(nullptr), 1);
    EXPECT_EQ(vm().VMSuspend(nullptr, 0), 1);
    host().results["virDomainGetName"] = 0;
    EXPECT_EQ(vm().VMResume(handle_), 1);
    EXPECT_EQ(vm().VMSuspend(handle_, 0), 1);
    EXPECT_THAT(host().commands(), IsEmpty());
}

TEST_F(DomainOperation, ResumeAndSuspendQuoteNames) {
    domain_.name = "a b";
    vm().VMResume(handle_);
    vm().VMSuspend(handle_, 0);
    EXPECT_THAT(
        host().commands(),
        ElementsAre("/usr/bin/virsh resume 'a b'", "/usr/bin/virsh suspend 'a b'"));
}

TEST_F(DomainOperation, RebootAsksLibvirtUnlessThereIsNoDomain) {
    EXPECT_EQ(vm().VMReboot(handle_), 0);
    EXPECT_EQ(vm().VMReboot(nullptr), 1);
    EXPECT_THAT(host().journal, ElementsAre("virDomainReboot one 0"));
    for (const int result : {-1, 1}) {
        host().results["virDomainReboot"] = result;
        EXPECT_EQ(vm().VMReboot(handle_), 1) << result;
    }
    EXPECT_EQ(host().connection_calls, 0);
}

TEST_F(DomainOperation, ShutdownAsksLibvirtEvenWithoutADomain) {
    EXPECT_EQ(vm().VMShutdown(handle_), 0);
    EXPECT_EQ(vm().VMShutdown(nullptr), 1);
    EXPECT_THAT(host().journal, ElementsAre("virDomainShutdown one", "virDomainShutdown (null)"));
    for (const int result : {-1, 1}) {
        host().results["virDomainShutdown"] = result;
        EXPECT_EQ(vm().VMShutdown(handle_), 1) << result;
    }
}

TEST_F(DomainOperation, LookupPassesTheSixteenBytes) {
    FakeDomain& known = host().add({.name = "known", .uuid = numbered_uuid(3)});
    test::Uuid uuid = numbered_uuid(3);
    EXPECT_EQ(vm().getDomainPtr(uuid.data()), handle(known));
    uuid[15] ^= 1;
    EXPECT_EQ(vm().getDomainPtr(uuid.data()), nullptr);
    host().refuse_connection_from = 1;
    host().journal.clear();
    EXPECT_EQ(vm().getDomainPtr(uuid.data()), nullptr);
    EXPECT_THAT(host().journal, IsEmpty());
}

class StateOperation : public test::VmTest {
protected:
    static constexpr int kStart = 0;
    static constexpr int kSuspend = 1;
    static constexpr int kShutDown = 2;
    static constexpr int kReboot = 3;
    static constexpr int kResume = 4;

    StateOperation() : domain_(host().add({.name = "one", .uuid = numbered_uuid(5)})) {
        text_ = test::digits(domain_.uuid);
    }

    // A domain in a state; afterwards the journal contains the calls after the query of the state.
    int apply(const char* state, int operation, const char* time = "10") {
        host().run = [=](const std::string& command) {
            return Ran{0, command.find(" domstate ") != command.npos ? state : "done"};
        };
        host().journal.clear();
        errno = 0;
        return apply_as_it_is(operation, time);
    }

    int apply_as_it_is(int operation, const char* time) {
        std::string time_text = time == nullptr ? "" : time;
        int result = -99;
        printed_ = printed([&] {
            result = vm().VMStateOperation(
                text_.data(), operation, time == nullptr ? nullptr : time_text.data());
        });
        return result;
    }

    // What happened after lookup and state.
    static std::vector<std::string> action() {
        const auto& journal = host().journal;
        EXPECT_GE(journal.size(), 3U);
        return {journal.begin() + 3, journal.end()};
    }

    // The digest of a UUID text that the lookup saw.
    std::string looked_up(const std::string& text) {
        text_ = text;
        host().journal.clear();
        apply_as_it_is(kReboot, nullptr);
        return host().journal.at(0);
    }

    FakeDomain& domain_;
    std::string text_;
    std::string printed_;
};

struct DispatchRow {
    const char* state;
    int operation;
    std::vector<std::string> action;
    int result;
};

TEST_F(StateOperation, IsAppliedInTheStatesThatAllowIt) {
    const std::vector<std::string> launch{"virDomainCreate one"};
    const std::vector<std::string> suspend{
        "virDomainGetName one", "run /usr/bin/virsh suspend one"};
    const std::vector<std::string> resume{"virDomainGetName one", "run /usr/bin/virsh resume one"};
    const std::vector<std::string> reboot{"virDomainReboot one 0"};
    const std::vector<std::string> shut_down{"virDomainShutdown one"};
    const std::vector<std::string> refused{"log 2 4 VMStateOperation: Invalid Operation"};
    const std::vector<std::string> nothing;
    const DispatchRow rows[] = {
        {"running", kStart, refused, 1},      {"paused", kStart, resume, 0},
        {"shut off", kStart, launch, 0},      {"running", kSuspend, suspend, 0},
        {"paused", kSuspend, refused, 1},     {"shut off", kSuspend, refused, 1},
        {"running", kShutDown, shut_down, 0}, {"paused", kShutDown, refused, 1},
        {"shut off", kShutDown, refused, 1},  {"running", kReboot, reboot, 0},
        {"paused", kReboot, reboot, 0},       {"shut off", kReboot, reboot, 0},
        {"running", kResume, refused, 1},     {"paused", kResume, resume, 0},
        {"shut off", kResume, refused, 1},    {"running", 5, nothing, 0},
        {"running", 7, nothing, 0},           {"paused", -1, nothing, 0},
        {"shut off", INT32_MIN, nothing, 0},
    };
    for (const DispatchRow& row : rows) {
        EXPECT_EQ(apply(row.state, row.operation), row.result) << row.state << row.operation;
        EXPECT_EQ(action(), row.action) << row.state << " " << row.operation;
    }
}

TEST_F(StateOperation, LooksTheDomainUpAndAsksForItsStateFirst) {
    apply("running", kReboot);
    EXPECT_THAT(
        host().journal,
        ElementsAre(
            "virDomainLookupByUUID " + test::digits(numbered_uuid(5)), "virDomainGetName one",
            "run /usr/bin/virsh domstate one", "virDomainReboot one 0"));
    EXPECT_EQ(printed_, test::digits(numbered_uuid(5)) + "\n");
}

TEST_F(StateOperation, GivesTheOperationsOwnResult) {
    host().results = {{"virDomainCreate", -1}, {"virDomainReboot", 1}, {"virDomainShutdown", -1}};
    EXPECT_EQ(apply("shut off", kStart), 1);
    EXPECT_EQ(apply("running", kReboot), 1);
    EXPECT_EQ(apply("running", kShutDown), 1);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(StateOperation, RefusesAnUnknownDomainEvenForUnknownOperations) {
    host().domains.clear();
    for (const int operation : {0, 1, 2, 3, 4, 7, -1}) {
        host().journal.clear();
        EXPECT_EQ(apply_as_it_is(operation, "1"), 1);
        EXPECT_THAT(host().logged(), ElementsAre("VMStateOperation: Invalid Domain"));
        EXPECT_THAT(host().commands(), IsEmpty());
    }
}

TEST_F(StateOperation, RefusesADomainWithoutAConnection) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(apply_as_it_is(kReboot, nullptr), 1);
    EXPECT_THAT(host().journal, ElementsAre("log 2 4 VMStateOperation: Invalid Domain"));
}

TEST_F(StateOperation, RefusesAnUnknownStateEvenForUnknownOperations) {
    for (const int operation : {0, 1, 2, 3, 4, 7}) {
        EXPECT_EQ(apply("crashed", operation), 1);
        EXPECT_THAT(action(), ElementsAre("log 2 4 VMStateOperation: Unknown Domain State"));
    }
}

TEST_F(StateOperation, SuspendTakesATimeThatIsNoNumber) {
    EXPECT_EQ(apply("running", kSuspend, "abc"), 0);
    EXPECT_EQ(apply("running", kSuspend, ""), 0);
    EXPECT_EQ(apply("running", kSuspend, "-9223372036854775808"), 0);
}

TEST_F(StateOperation, SuspendRefusesATimeThatIsTooLarge) {
    for (const char* time : {"9223372036854775808", "-9223372036854775809"}) {
        EXPECT_EQ(apply("running", kSuspend, time), 1);
        EXPECT_THAT(action(), ElementsAre("log 2 4 VMStateOperation: Invalid time parameter"));
    }
}

TEST_F(StateOperation, SuspendRefusesAnyTimeAfterAnEarlierCallsError) {
    for (const int stale : {EINVAL, ERANGE}) {
        apply("running", kReboot);
        host().journal.clear();
        errno = stale;
        EXPECT_EQ(apply_as_it_is(kSuspend, "10"), 1);
        EXPECT_THAT(host().logged(), ElementsAre("VMStateOperation: Invalid time parameter"));
    }
    errno = EBADF;
    EXPECT_EQ(apply_as_it_is(kSuspend, "10"), 0) << "other errors do not count";
}

TEST_F(StateOperation, SuspendSeesAnErrorThatTheStateCommandLeftBehind) {
    host().run = [](const std::string&) {
        errno = EINVAL;
        return Ran{0, "running"};
    };
    errno = 0;
    EXPECT_EQ(apply_as_it_is(kSuspend, "10"), 1);
    EXPECT_THAT(host().logged(), ElementsAre("VMStateOperation: Invalid time parameter"));
}

TEST_F(StateOperation, TimeIsLookedAtBeforeTheState) {
    EXPECT_EQ(apply("paused", kSuspend, "99999999999999999999"), 1);
    EXPECT_THAT(action(), ElementsAre("log 2 4 VMStateOperation: Invalid time parameter"));
}

TEST_F(StateOperation, TimeCountsForSuspendAlone) {
    for (const int operation : {kStart, kShutDown, kReboot, kResume, 9}) {
        apply("running", operation, nullptr);
        EXPECT_THAT(
            host().logged(),
            testing::Not(testing::Contains("VMStateOperation: Invalid time parameter")));
        errno = ERANGE;
        EXPECT_EQ(apply_as_it_is(kReboot, "99999999999999999999"), 0);
    }
    EXPECT_EQ(apply("running", kSuspend, nullptr), 1);
    EXPECT_THAT(action(), ElementsAre("log 2 4 VMStateOperation: Invalid time parameter"));
}

TEST_F(StateOperation, TextIsReadTwoDigitsAByte) {
    EXPECT_EQ(
        looked_up("00112233445566778899aabbccddeeff"),
        "virDomainLookupByUUID 00112233445566778899aabbccddeeff");
    EXPECT_EQ(
        looked_up("00112233445566778899AABBCCDDEEFFtail"),
        "virDomainLookupByUUID 00112233445566778899aabbccddeeff");
}

TEST_F(StateOperation, EndOfTheTextIsLookedForAtTheBytesNumber) {
    // Six characters: bytes 0 to 5 are asked for, the text has three of them.
    EXPECT_EQ(looked_up("aabbcc"), "virDomainLookupByUUID aabbcc00000000000000000000000000");
    EXPECT_EQ(looked_up("a"), "virDomainLookupByUUID 0a000000000000000000000000000000");
    EXPECT_EQ(looked_up(""), "virDomainLookupByUUID 00000000000000000000000000000000");
    EXPECT_EQ(
        looked_up("00112233445566778899aabbccddee"),
        "virDomainLookupByUUID 00112233445566778899aabbccddee00");
    EXPECT_EQ(
        looked_up("00112233445566778899aabbccddeef"),
        "virDomainLookupByUUID 00112233445566778899aabbccddee0f");
}

TEST_F(StateOperation, DigitsThatCannotBeReadLeaveZero) {
    EXPECT_EQ(
        looked_up("zz1122z-445566778899aabbccddeeff"),
        "virDomainLookupByUUID 00112200445566778899aabbccddeeff");
    EXPECT_EQ(
        looked_up("1z223344556677889900aabbccddeeff"),
        "virDomainLookupByUUID 01223344556677889900aabbccddeeff");
    EXPECT_EQ(
        looked_up("-1223344556677889900aabbccddeeff"),
        "virDomainLookupByUUID ff223344556677889900aabbccddeeff")
        << "a sign is one";
}

TEST_F(StateOperation, AHyphenatedTextIsReadByPlacesAllTheSame) {
    EXPECT_EQ(
        looked_up("00112233-4455-6677-8899-aabbccddeeff"),
        "virDomainLookupByUUID 00112233fc45056677f88909aabbccdd");
}

TEST_F(StateOperation, LongTextsAreCutNotOverread) {
    EXPECT_EQ(
        looked_up(std::string(5000, 'f')),
        "virDomainLookupByUUID ffffffffffffffffffffffffffffffff");
}

TEST_F(StateOperation, PrintsTheTextAsItIs) {
    text_ = "%s%n%x";
    apply_as_it_is(kReboot, nullptr);
    EXPECT_EQ(printed_, "%s%n%x\n");
}

TEST_F(StateOperation, NullNamesNoDomain) {
    EXPECT_EQ(vm().VMStateOperation(nullptr, kReboot, nullptr), 1);
    EXPECT_THAT(host().journal, ElementsAre("log 2 4 VMStateOperation: Invalid Domain"));
}

}  // namespace
