// kxsim: commands on hosts from scenarios.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "kxsim/program.hpp"
#include "support/other_user.hpp"

namespace {

namespace fs = std::filesystem;

using test::kxsim;
using test::on_lab;
using test::Outcome;
using test::shell;
using test::shell_word;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Outcome run(const std::string& arguments) { return kxsim(arguments); }

// --- Running ---

TEST(Program, RunsACommandOnTheLabHost) {
    const Outcome outcome = on_lab("lspci | grep Kestrix | head -1; cat /sys/class/net/eth2/mtu");
    EXPECT_EQ(
        outcome.output,
        "03:00.4 Ethernet controller: Kestrix Communications Q520-CR dual-port 40GbE adapter "
        "(rev 01)\n9000\n");
    EXPECT_EQ(outcome.code, 0);
}

TEST(Program, LspciOutputFitsThePipelinesOfAgents) {
    EXPECT_EQ(
        on_lab("lspci -D | grep \"Kestrix\" | cut -d\" \" -f1 | tail -1").output, "0000:05:00.0\n");
    EXPECT_EQ(on_lab("lspci -Dn | grep -c \"4b58:48\"").output, "8\n");
}

TEST(Program, TheCommandsExitCodeIsItsOwn) {
    EXPECT_EQ(run("run -- true").code, 0);
    EXPECT_EQ(run("run -- sh -c 'exit 42'").code, 42);
    EXPECT_EQ(run("run -- sh -c 'kill -9 $$'").code, 128 + 9);
    EXPECT_EQ(run("run -- /nosuch").code, 127);
    EXPECT_EQ(run("run -- /etc/passwd").code, 126);
}

TEST(Program, ArgumentsOfTheCommandAreLeftAlone) {
    EXPECT_EQ(run("run -- echo --help -s x '*' 'a b'").output, "--help -s x * a b\n");
}

// In the sanitized build that program is sanitized too.
TEST(Program, CallsMadeBeforeConstructorsRanWork) {
    const std::string program = test::test_directory() / "early_caller";
    EXPECT_THAT(run("run -- " + shell_word(program)).output, StartsWith("worked early\nzfab4 "));
    const std::string preload = test::preloaded() + "ASAN_OPTIONS=verify_asan_link_order=0 ";
    EXPECT_THAT(
        shell(preload + shell_word(program) + " 2>&1").output, StartsWith("worked early\n"));
}

TEST(Program, SettingsOfOneCommandAreThereForTheNext) {
    EXPECT_EQ(
        on_lab("echo 77 > /proc/sys/toe/toe0_tom/mss; sh -c \"cat /proc/sys/toe/toe0_tom/mss\"")
            .output,
        "77\n");
}

TEST(Program, SavedSettingsAreAppliedByTheRealSysctl) {
    EXPECT_EQ(
        on_lab("echo toe.toe0_tom.mss = 9000 >> /etc/sysctl.conf; sysctl -p; "
               "cat /proc/sys/toe/toe0_tom/mss /proc/sys/toe/toe0_tom/ddp")
            .output,
        "toe.toe0_tom.ddp = 0\ntoe.toe0_tom.max_wr = 64\ntoe.toe0_tom.mss = 9000\n9000\n0\n");
}

TEST(Program, NothingReachesTheRealMachine) {
    const Outcome outcome = on_lab("echo changed > /etc/sysctl.conf; rm /etc/kestrix-plexo/*");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_FALSE(fs::exists("/etc/kestrix-plexo"));
}

TEST(Program, AHostThatIsKeptGoesOnWhereItWasLeft) {
    const test::ScratchDirectory scratch;
    const std::string keep = "run --keep " + shell_word(scratch / "host");
    EXPECT_EQ(run(keep + " -s empty -- sh -c 'echo 1 > /etc/sysctl.conf'").code, 0);
    EXPECT_EQ(run(keep + " -- cat /etc/sysctl.conf").output, "1\n");
    const Outcome refused = run(keep + " -s lab -- true");
    EXPECT_EQ(refused.code, 2);
    EXPECT_THAT(refused.output, HasSubstr("holds a host already"));
}

TEST(Program, AHostThatIsNotKeptLeavesNothingBehind) {
    const test::ScratchDirectory scratch;
    const std::string command =
        "TMPDIR=" + shell_word(scratch / "") + " " + shell_word(kxsim()) + " run -s empty -- true";
    EXPECT_EQ(shell(command).status, 0);
    EXPECT_TRUE(fs::is_empty(scratch / ""));
}

TEST(Program, AHostWhoseSessionIsGoneIsNeverTakenForTheRealMachine) {
    const auto [status, output] =
        shell("KXSIM_ROOT=/nosuch " + test::preloaded() + "cat /proc/modules 2>&1");
    EXPECT_EQ(WEXITSTATUS(status), 127);
    EXPECT_THAT(output, HasSubstr("KXSIM_ROOT names no session"));
}

// --- Nothing runs on the real machine in place of the simulated host ---

// A copy of the program and what it needs, in a directory of any name.
class Copy {
public:
    explicit Copy(const std::string& name) : directory_(scratch_ / name) {
        const fs::path built = fs::path(kxsim()).parent_path();
        fs::create_directories(directory_ / "scenarios");
        fs::copy_file(built / "kxsim", directory_ / "kxsim");
        fs::copy_file(built / "libkxsim.so", library());
        fs::copy_file(built / "scenarios/lab.toml", directory_ / "scenarios/lab.toml");
    }

    fs::path library() const { return directory_ / "libkxsim.so"; }

    Outcome run(const std::string& arguments, const std::string& environment = "") const {
        const std::string program = shell_word(directory_ / "kxsim") + " ";
        const auto [status, output] = shell(environment + " " + program + arguments + " 2>&1");
        return {WEXITSTATUS(status), output};
    }

private:
    const test::ScratchDirectory scratch_;
    const fs::path directory_;
};

TEST(Program, WorksFromPathsThatTheLoaderWouldSplitOrReplace) {
    for (const char* name : {"a b", "a:b", "$LIB", "a\tb"}) {
        const Copy copy(name);
        const Outcome outcome =
            copy.run("run -- sh -c 'cat /sys/class/net/eth2/mtu; sh -c \"lsmod | grep -c zfab4\"'");
        EXPECT_EQ(outcome.output, "9000\n2\n") << name;
        EXPECT_EQ(outcome.code, 0) << name;
    }
}

TEST(Program, WorksWhenTheDirectoryForTemporaryFilesHasABlankToo) {
    const Copy copy("a b");
    const test::ScratchDirectory scratch;
    fs::create_directory(scratch / "c d");
    EXPECT_EQ(
        copy.run("run -- cat /sys/class/net/eth2/mtu", "TMPDIR=" + shell_word(scratch / "c d"))
            .output,
        "9000\n");
    EXPECT_TRUE(fs::is_empty(scratch / "c d"));
}

TEST(Program, RunsNothingWhenItsLibraryCannotBeLoaded) {
    const Copy copy("plain");
    const test::ScratchDirectory scratch;
    std::ofstream(copy.library()) << "no library";
    const Outcome outcome = copy.run("run -- touch " + shell_word(scratch / "ran"));
    EXPECT_EQ(outcome.code, 126);
    EXPECT_THAT(outcome.output, HasSubstr("libkxsim.so could not be loaded"));
    EXPECT_FALSE(fs::exists(scratch / "ran"));
}

TEST(Program, RunsNoStaticProgram) {
    const test::ScratchDirectory scratch;
    const std::string program = test::static_program(scratch);
    if (program.empty()) {
        GTEST_SKIP() << "no static program can be built here";
    }
    const test::WorkingDirectory there(scratch.path());
    const std::string script = scratch.write("script", "#! ./static -x\n");
    fs::permissions(script, fs::perms::owner_all);
    for (const std::string& command : {program, script}) {
        const Outcome outcome = run("run -- " + shell_word(command));
        EXPECT_EQ(outcome.code, 126) << command;
        EXPECT_THAT(
            outcome.output, AllOf(HasSubstr("it is linked statically"), Not(HasSubstr("ran"))))
            << command;
    }
}

// With their owner's rights they would run without the library.
TEST(Program, TakesTheRightsFromSetUserIdPrograms) {
    if (!test::can_become(65534)) {
        GTEST_SKIP() << "giving a program to another user needs root, and another user";
    }
    const test::ScratchDirectory scratch;
    fs::permissions(scratch / "", fs::perms(0755));
    const std::string program = scratch / "cat";
    fs::copy_file("/bin/cat", program);
    ASSERT_EQ(chown(program.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chmod(program.c_str(), 06755), 0);
    EXPECT_EQ(run("run -- " + shell_word(program) + " /sys/class/net/eth2/mtu").output, "9000\n");
    EXPECT_EQ(on_lab(shell_word(program) + " /sys/class/net/eth2/mtu").output, "9000\n");
}

// --- Where the host is ---

TEST(Program, MakesItsHostInMemoryUnlessTmpdirNamesAnotherPlace) {
    const test::ScratchDirectory scratch;
    const std::string command = shell_word(kxsim()) + " run -s empty -- sh -c 'echo $KXSIM_ROOT'";
    EXPECT_THAT(
        shell("TMPDIR=" + shell_word(scratch / "") + " " + command).output,
        StartsWith(scratch / ""));
    const std::string serves =
        "findmnt -no OPTIONS /dev/shm | grep -qvw noexec && test -w /dev/shm && "
        "test $(df --output=avail /dev/shm | tail -1) -gt 70000";
    if (shell(serves).status != 0) {
        GTEST_SKIP() << "/dev/shm is full, or programs cannot be run there";
    }
    EXPECT_THAT(shell("env -u TMPDIR " + command).output, StartsWith("/dev/shm/kxsim-"));
}

// --- Nothing stays behind ---

// A running kxsim: its process, after its command or scenario began to wait.
class RunningProgram {
public:
    RunningProgram(const std::string& arguments, const std::string& temporary) {
        const std::string command = "exec env TMPDIR=" + shell_word(temporary) + " " +
                                    shell_word(kxsim()) + " " + arguments + " >/dev/null 2>&1";
        process_ = fork();
        if (process_ == 0) {
            setsid();
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
    }
    ~RunningProgram() {
        kill(-process_, SIGKILL);  // the command that a killed run left
    }

    int end_by(int signal) {
        kill(process_, signal);
        int status = 0;
        waitpid(process_, &status, 0);
        return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    pid_t process_ = -1;
};

void wait_until(const std::function<bool()>& done) {
    for (int tries = 0; tries < 1000 && !done(); ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(done());
}

TEST(Program, RemovesItsHostWhenASignalEndsTheCommand) {
    for (const int signal : {SIGTERM, SIGHUP}) {
        const test::ScratchDirectory scratch;
        const test::ScratchDirectory temporary;
        RunningProgram program(
            "run -s empty -- sh -c " +
                shell_word("touch " + shell_word(scratch / "began") + "; exec sleep 60"),
            temporary / "");
        wait_until([&] { return fs::exists(scratch / "began"); });
        EXPECT_EQ(program.end_by(signal), 128 + signal);
        EXPECT_TRUE(fs::is_empty(temporary / "")) << signal;
    }
}

// The scenario is a pipe that nobody writes to.
TEST(Program, RemovesItsHostWhenASignalComesBeforeTheCommandRuns) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        const test::ScratchDirectory scratch;
        const test::ScratchDirectory temporary;
        ASSERT_EQ(mkfifo((scratch / "pipe.toml").c_str(), 0600), 0);
        RunningProgram program(
            "run -s " + shell_word(scratch / "pipe.toml") + " -- true", temporary / "");
        wait_until([&] { return !fs::is_empty(temporary / ""); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));  // until it opens the pipe
        EXPECT_EQ(program.end_by(signal), 128 + signal);
        EXPECT_TRUE(fs::is_empty(temporary / "")) << signal;
    }
}

TEST(Program, RemovesTheHostOfARunThatWasKilled) {
    const test::ScratchDirectory scratch;
    const test::ScratchDirectory temporary;
    RunningProgram killed(
        "run -s empty -- sh -c " +
            shell_word("touch " + shell_word(scratch / "began") + "; exec sleep 60"),
        temporary / "");
    wait_until([&] { return fs::exists(scratch / "began"); });
    const std::string in_use = "TMPDIR=" + shell_word(temporary / "") + " " + shell_word(kxsim()) +
                               " run -s empty -- true";
    EXPECT_EQ(shell(in_use).status, 0);
    EXPECT_FALSE(fs::is_empty(temporary / "")) << "the host of a run that goes on was removed";
    EXPECT_EQ(killed.end_by(SIGKILL), 1000 + SIGKILL);
    EXPECT_EQ(shell(in_use).status, 0);
    EXPECT_TRUE(fs::is_empty(temporary / ""));
}

TEST(Program, RemovesNothingThatIsNotALeftoverOfItsOwn) {
    const test::ScratchDirectory temporary;
    fs::create_directory(
        temporary / "kxsim-locked-abcdef");  // others can look into it: not a host of a run
    fs::permissions(temporary / "kxsim-locked-abcdef", fs::perms(0755));
    fs::create_directory(temporary / "kxsim-longer-name");
    // An earlier version, which locks nothing, may be using it.
    fs::create_directory(temporary / "kxsim-earlie");
    fs::permissions(temporary / "kxsim-earlie", fs::perms::owner_all);
    fs::create_directory(temporary / "elsewhere");
    std::ofstream(temporary / "elsewhere/precious") << "kept";
    fs::permissions(temporary / "elsewhere", fs::perms::owner_all);
    fs::create_directory_symlink("elsewhere", temporary / "kxsim-locked-linked");
    fs::create_directory(temporary / "kxsim-locked-GHIJKL");
    fs::permissions(temporary / "kxsim-locked-GHIJKL", fs::perms::owner_all);
    fs::create_directory_symlink("../elsewhere", temporary / "kxsim-locked-GHIJKL/link");
    EXPECT_EQ(
        shell(
            "TMPDIR=" + shell_word(temporary / "") + " " + shell_word(kxsim()) +
            " run -s empty -- true")
            .status,
        0);
    EXPECT_TRUE(fs::exists(temporary / "kxsim-locked-abcdef"));
    EXPECT_TRUE(fs::exists(temporary / "kxsim-earlie"));
    EXPECT_TRUE(fs::exists(temporary / "kxsim-longer-name"));
    EXPECT_TRUE(fs::exists(temporary / "elsewhere/precious"));
    EXPECT_TRUE(fs::is_symlink(temporary / "kxsim-locked-linked"));
    EXPECT_FALSE(fs::exists(temporary / "kxsim-locked-GHIJKL"));
}

TEST(Program, TheLibraryAloneChangesNothing) {
    const std::string command = " sh -c 'cat /proc/version; ls /sys/class/net /etc; lspci'";
    EXPECT_EQ(
        shell(test::preloaded() + command + " 2>&1").output,
        shell("env" + command + " 2>&1").output);
}

// --- Scenarios ---

TEST(Scenarios, AreListedWithTheirTitles) {
    const Outcome outcome = run("list");
    EXPECT_EQ(outcome.code, 0);
    for (const char* name :
         {"damaged-vpd ", "empty ", "guest-vfs-only ", "lab ", "many-ports ", "nic-only-q3 ",
          "no-driver "}) {
        EXPECT_THAT(outcome.output, HasSubstr(name));
    }
    EXPECT_THAT(outcome.output, HasSubstr("The lab: a dual-port Q5"));
}

TEST(Scenarios, CanBeShownAndRunFromTheirText) {
    const test::ScratchDirectory scratch;
    const std::string file = scratch.write("copy.toml", run("show many-ports").output);
    EXPECT_EQ(
        run("run -s " + shell_word(file) + " -- sh -c 'ls /sys/class/net | wc -l'").output, "20\n");
}

TEST(Scenarios, AllThatShipCanBeRun) {
    for (const std::string& line : test::lines_of(run("list").output)) {
        const std::string name = line.substr(0, line.find(' '));
        const Outcome outcome = run("run -s " + name + " -- true");
        EXPECT_EQ(outcome.code, 0) << name << ": " << outcome.output;
    }
}

TEST(Scenarios, OfUnknownNamesAreRefused) {
    const Outcome outcome = run("run -s nosuch -- true");
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(
        outcome.output,
        "scenario \"nosuch\", expected damaged-vpd, empty, guest-vfs-only, lab, "
        "many-ports, nic-only-q3, no-driver or a file\n");
    EXPECT_THAT(run("run -s /no/such.toml -- true").output, StartsWith("/no/such.toml:1:1: "));
}

struct Mistake {
    const char* text;
    const char* line;     // the line in the message
    const char* message;  // part of the message
};

const Mistake kMistakes[] = {
    {"x = 1", "1", "the scenario has the unknown key x, expected title, "},
    {"title = 'a'\n\n[[adaptor]]", "3", "unknown key adaptor"},
    {"title = 4", "1", "title is 4, expected a text"},
    {"hide_entry_types = 'yes'", "1", "hide_entry_types is \"yes\", expected true or false"},
    {"title = [[[", "1", "expected a TOML document"},
    {"title = 'a'\ntitle = 'b'", "2", "expected a TOML document"},
    {"[adapter]\nchip = 'Q5'", "1", "adapter is a table, expected tables [[adapter]]"},
    {"adapter = [1]", "1", "adapter holds 1, expected tables [[adapter]]"},
    {"[[adapter]]\nchip = 'Q5'", "1", "[[adapter]] has no location, expected one"},
    {"[[adapter]]\nlocation = '03:00.4'", "1", "[[adapter]] has no chip, expected one"},
    {"[[adapter]]\nchip = 'Q9'\nlocation = '03:00.4'", "2", "chip \"Q9\" is none of Q3, Q4, Q5"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00:4'", "3", "is not of the form 03:00.4"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\ndevice_id = 65536", "4",
     "device_id is 65536, expected a number from 0 to 65535"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\nsiblings = [8]", "4",
     "siblings holds 8, expected numbers from 0 to 7"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\nvirtual_functions = -1", "4",
     "virtual_functions is -1, expected a number"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\ncolour = 'red'", "4",
     "[[adapter]] has the unknown key colour, expected chip, location, "},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\n[[adapter]]\nchip = 'Q4'\n"
     "location = '03:00.4'",
     "6", "PCI location 0000:03:00.4 is taken"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\n[[adapter.port]]\nnmae = 'eth0'", "4",
     "[[port]] has no name, expected one"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\n[[adapter.port]]\nname = 'eth0'\n"
     "[[adapter.port]]\nname = 'eth0'",
     "7", "interface name eth0 is taken"},
    {"[[interface]]\nname = 'a name'", "2", "is no interface name of 1 to 15 characters"},
    {"[[interface]]\nname = 'eth0'\nmac = '00:11'", "3", "is no MAC address like"},
    {"[[interface]]\nname = 'eth0'\nipv4 = [\n'192.0.2.1/24',\n'192.0.2/24']", "5",
     "\"192.0.2/24\" is no IPv4 address like"},
    {"[[interface]]\nname = 'eth0'\nipv6 = ['192.0.2.1/24']", "3", "is no IPv6 address like"},
    {"[[interface]]\nname = 'eth0'\nipv4 = '192.0.2.1/24'", "3", "expected an array of texts"},
    {"[[interface]]\nname = 'eth0'\nmtu = 'big'", "3", "mtu is \"big\", expected a number"},
    {"[[interface]]\nname = 'eth0'\n[[interface.nic.counter]]\nname = ''", "4",
     "counter name \"\", expected 1 to 32 characters"},
    {"[[interface]]\nname = 'eth0'\n[[interface.nic.counter]]\nname = 'rx'\nstop = 1", "5",
     "[[counter]] has the unknown key stop"},
    {"[[pci_device]]\nlocation = '01:00.0'\nvendor_id = 1", "1", "has no device_id"},
    {"[[module]]\nname = 'a'\nelf_class = 16", "1", "a module file is of class 32 or 64"},
    {"[[module]]\nname = 'a'\nparameters = 1", "3", "expected a table of names and values"},
    {"[[module]]\nname = 'a'\nparameters = {a = 1.5}", "3", "expected a number or a text"},
    {"[[toe_device]]\ninterfaces = ['eth0']", "1", "[[toe_device]] has no index"},
    {"[[file]]\npath = 'etc/x'", "2", "expected one that begins with /"},
    {"[[file]]\npath = '/etc/../x'", "2", "expected one that begins with / and has no .."},
    {"[[directory]]\npath = '/etc/x'\n[[link]]\npath = '/etc/x'\ntarget = 'y'", "4",
     "is there already"},
    {"[[missing]]\npath = '/etc/..'", "2", "expected one that begins with / and has no .."},
    {"[[directory]]\npath = '/etc/x'\norder = ['a', 'b/c']", "3", "expected a name without /"},
    {"[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\ndriver = '../x'", "4", "driver is \"../x\""},
    {"[[interface]]\nname = 'eth0'\ndriver = '../x'", "3", "driver is \"../x\", expected a name"},
    {"[[module]]\nname = '../x'", "2", "name is \"../x\", expected a name without /"},
    {"[[module]]\nname = 'a'\nwhere = '/x'", "3", "where is \"/x\", expected a path that does not"},
    {"[[module]]\nname = 'a'\nwhere = 'x/../..'", "3", "where is \"x/../..\""},
    {"[[module]]\nname = 'a'\nfile = '../a.ko'", "3", "file is \"../a.ko\", expected a name"},
    {"[[module]]\nname = 'a'\nused_by = '../b'", "3", "used_by is \"../b\", expected a name"},
    {"[[module]]\nname = 'a'\n[module.parameters]\n\"../b\" = 1", "4", "expected a name without /"},
    {"[[toe_device]]\nindex = 0\nparameters = {\"../b\" = 1}", "3", "expected a name without /"},
    {"[[file]]\npath = '/etc/x'\nmode = '999'", "3", "expected an octal text such as 0644"},
    {"[[file]]\npath = '/etc/x'\ncontent = 'a'\nbytes = [1]", "4", "expected one of them"},
    {"[[file]]\npath = '/etc/x'\nbytes = [256]", "3", "bytes holds 256"},
    {"[[refusal]]\ninterface = 'eth0'\nrequest = 'ETHTOOL_GSET'", "2", "has no interface \"eth0\""},
    {"[[refusal]]\ninterface = 'eth0'\nrequest = 'GSET'", "3", "expected a request name such as"},
    {"[[ignored]]\ninterface = 'eth0'\nrequest = 'ETHTOOL_SSG'", "2", "has no interface \"eth0\""},
    {"[[interface]]\nname = 'eth0'\n[[ignored]]\ninterface = 'eth0'\nrequest = 'ETHTOOL_GSET'", "5",
     "request is \"ETHTOOL_GSET\", expected one that changes something"},
    {"[[ignored]]\nrequest = 'ETHTOOL_SSG'", "1", "has no interface, expected one"},
    {"[[interface]]\nname = 'eth0'\n[interface.nic]\nring_multiple = 0", "4",
     "ring_multiple is 0, expected at least 1"},
    {"[[interface]]\nname = 'eth0'\n[interface.nic]\nusecs_multiple = 0", "4",
     "usecs_multiple is 0, expected at least 1"},
    {"[[fault]]\ncall = 'frob'", "2", "\"frob\" is no kind of call"},
    {"[[fault]]\ncall = 'open'\nerror = 'EWHAT'", "3", "expected an error name such as EBUSY"},
    {"[[fault]]\ncall = 'open'\nmost = 1", "1", "only reads and writes are cut short"},
    {"[[fault]]\ncall = 'malloc'", "2", "expected one that fails outside of tests too"},
};

TEST(Scenarios, MistakesAreToldInOneLineWithTheirPlace) {
    const test::ScratchDirectory scratch;
    for (const Mistake& mistake : kMistakes) {
        const std::string file = scratch.write("wrong.toml", mistake.text);
        const Outcome outcome = run("run -s " + shell_word(file) + " -- echo ran");
        EXPECT_EQ(outcome.code, 2) << mistake.text;
        EXPECT_THAT(
            outcome.output, AllOf(
                                StartsWith(file + ":" + mistake.line + ":"),
                                HasSubstr(mistake.message), EndsWith("\n")))
            << mistake.text;
        EXPECT_EQ(test::lines_of(outcome.output).size(), 1U) << outcome.output;
    }
}

TEST(Scenarios, MayHoldFilesDirectoriesLinksAndGaps) {
    const test::ScratchDirectory scratch;
    const std::string file = scratch.write("files.toml", R"(
[[file]]
path = "/etc/kestrix-plexo/text"
content = "hello\n"

[[file]]
path = "/etc/kestrix-plexo/bytes"
bytes = [0x66, 0x6f, 0x6f, 0]

[[file]]
path = "/proc/net/zfab3/devices"
mode = "0000"

[[directory]]
path = "/lib/modules/x"
order = ["b", "a"]

[[link]]
path = "/etc/kestrix-plexo/link"
target = "text"

[[missing]]
path = "/proc/modules"
)");
    EXPECT_EQ(
        run("run -s " + shell_word(file) +
            " -- env LC_ALL=C sh -c 'cat /etc/kestrix-plexo/link; wc -c < "
            "/etc/kestrix-plexo/bytes; "
            "cat /proc/net/zfab3/devices /proc/modules'")
            .output,
        "hello\n4\ncat: /proc/net/zfab3/devices: Permission denied\n"
        "cat: /proc/modules: No such file or directory\n");
}

// --- What a scenario names stays on the host ---

// A directory of the real machine that no scenario may reach.
class Precious {
public:
    Precious() { scratch_.write("file", "precious\n"); }
    std::string directory() const { return scratch_ / ""; }
    std::string file() const { return scratch_ / "file"; }
    bool untouched() const {
        std::ifstream in(file());
        std::string text;
        std::getline(in, text);
        return text == "precious" &&
               std::distance(fs::directory_iterator(scratch_ / ""), fs::directory_iterator()) == 1;
    }

private:
    const test::ScratchDirectory scratch_;
};

std::string link_to(const std::string& target) {
    return "[[link]]\npath = '/etc/kestrix-plexo/way'\ntarget = '" + target + "'\n";
}

TEST(Scenarios, WriteNothingThroughLinksThatLeadOutOfTheHost) {
    for (const char* table :
         {"[[link]]\npath = '/etc/kestrix-plexo/way/link'\ntarget = 'x'\n",
          "[[missing]]\npath = '/etc/kestrix-plexo/way/file'\n",
          "[[missing]]\npath = '/etc/kestrix-plexo/way'\n"}) {
        const test::ScratchDirectory scratch;
        const Precious precious;
        for (const std::string& target :
             {precious.directory(), "../../../../../../../../../../.." + precious.directory()}) {
            const std::string file = scratch.write("links.toml", link_to(target) + table);
            EXPECT_EQ(run("run -s " + shell_word(file) + " -- true").code, 0) << table;
            EXPECT_TRUE(precious.untouched()) << table << " by a link to " << target;
        }
    }
}

TEST(Scenarios, HaveNoLinksThroughWhichACommandLeavesTheHost) {
    const test::ScratchDirectory scratch;
    const Precious precious;
    for (const std::string& target :
         {precious.file(), "../../../../../../../.." + precious.file()}) {
        const std::string file = scratch.write("links.toml", link_to(target));
        const Outcome outcome =
            run("run -s " + shell_word(file) +
                " -- sh -c 'readlink /etc/kestrix-plexo/way; cat /etc/kestrix-plexo/way; "
                "echo new > /etc/kestrix-plexo/way; truncate -s 0 /etc/kestrix-plexo/way; "
                "chmod 0 /etc/kestrix-plexo/way; true'");
        EXPECT_THAT(outcome.output, StartsWith(target + "\n")) << "the link itself is what it was";
        EXPECT_THAT(outcome.output, Not(HasSubstr("precious\n"))) << target;
        EXPECT_TRUE(precious.untouched()) << target;
    }
}

TEST(Scenarios, HaveLinksWithinTheHost) {
    const test::ScratchDirectory scratch;
    const std::string file = scratch.write("links.toml", R"(
[[file]]
path = "/etc/kestrix-plexo/real/file"
content = "text\n"

[[link]]
path = "/etc/kestrix-plexo/absolute"
target = "/etc/kestrix-plexo/real"

[[link]]
path = "/etc/kestrix-plexo/climbing"
target = "../../../../etc/kestrix-plexo/absolute"

[[link]]
path = "/etc/kestrix-plexo/circle"
target = "circle"
)");
    EXPECT_EQ(
        run("run -s " + shell_word(file) +
            " -- env LC_ALL=C sh -c 'cd /etc/kestrix-plexo; cat absolute/file climbing/file; "
            "cat circle; echo changed > climbing/file; cat real/file; rm climbing; ls'")
            .output,
        "text\ntext\ncat: circle: Too many levels of symbolic links\nchanged\n"
        "absolute\ncircle\nreal\n");
}

TEST(Scenarios, KeepTheirFlashBesideThemselves) {
    const char* const adapter = "[[adapter]]\nchip = 'Q5'\nlocation = '03:00.4'\n[adapter.flash]\n";
    const Precious precious;
    const test::ScratchDirectory scratch;
    fs::create_directory_symlink(precious.directory(), scratch / "out");
    fs::create_symlink(precious.file(), scratch / "link");
    fs::create_symlink(precious.directory() + "new", scratch / "dangling");
    for (const std::string& name :
         {precious.file(),
          "../" + fs::path(precious.directory()).parent_path().filename().string() + "/file",
          std::string("out/file"), std::string("out/new"), std::string("link"),
          std::string("dangling"), std::string("/dev/null")}) {
        const std::string file = scratch.write("flash.toml", adapter + ("file = '" + name + "'\n"));
        const Outcome outcome = run("run -s " + shell_word(file) + " -- echo ran");
        EXPECT_EQ(outcome.code, 2) << name;
        EXPECT_THAT(
            outcome.output, AllOf(StartsWith(file + ":5:1: file is "), Not(HasSubstr("ran"))))
            << name;
        EXPECT_TRUE(precious.untouched()) << name;
    }
    fs::create_directory(scratch / "below");
    fs::create_symlink("below", scratch / "inside");
    const std::string file =
        scratch.write("flash.toml", adapter + std::string("file = 'inside/flash'"));
    EXPECT_EQ(run("run -s " + shell_word(file) + " -- true").code, 0);
    EXPECT_TRUE(fs::exists(scratch / "below/flash"));
}

TEST(Scenarios, MayTellWhatADriverAnswers) {
    const test::ScratchDirectory scratch;
    const std::string file = scratch.write("driver.toml", R"(
[[interface]]
name = "eth0"

[interface.nic]
link = false
speed = 40000
duplex = "half"
autoneg = false
connector = 0

  [[interface.nic.counter]]
  name = "tx_frames"
  value = 7

  [[interface.nic.counter]]
  name = "rx_frames"
  value = 70
  step = 5
)");
    const Outcome outcome =
        run("run -s " + shell_word(file) +
            " -- sh -c 'ethtool eth0; ethtool -S eth0; ethtool -S eth0'");
    for (const char* part :
         {"Speed: 40000Mb/s", "Duplex: Half", "Auto-negotiation: off", "Port: Twisted Pair",
          "Link detected: no", "     tx_frames: 7\n     rx_frames: 70\n"}) {
        EXPECT_THAT(outcome.output, HasSubstr(part));
    }
}

TEST(Scenarios, MayHoldFaultsAndRefusals) {
    const test::ScratchDirectory scratch;
    const std::string file = scratch.write("faults.toml", R"(
[[interface]]
name = "eth0"

[[refusal]]
interface = "eth0"
request = "ETHTOOL_GDRVINFO"
error = "EPERM"

[[fault]]
call = "open"
nth = 2
error = "ENFILE"
object = "/proc/modules"
)");
    EXPECT_EQ(
        run("run -s " + shell_word(file) +
            " -- env LC_ALL=C sh -c 'cat /proc/modules; cat /proc/modules; cat /proc/modules'")
            .output,
        "cat: /proc/modules: Too many open files in system\n");
    EXPECT_THAT(
        run("run -s " + shell_word(file) + " -- ethtool -i eth0").output,
        HasSubstr("Operation not permitted"));
}

TEST(Scenarios, MayCutAWriteMidway) {
    const test::ScratchDirectory scratch;
    const std::string file = scratch.write("midway.toml", R"(
[[file]]
path = "/etc/kestrix-plexo/text"
content = "old"

[[fault]]
call = "file"
nth = 2
error = "ENOSPC"
most = 2
object = "/etc/kestrix-plexo/text"

[[fault]]
call = "read"
most = 1
object = "/etc/kestrix-plexo/text"
times = 0
)");
    EXPECT_EQ(
        run("run -s " + shell_word(file) +
            " -- sh -c 'printf 12345 2>/dev/null > /etc/kestrix-plexo/text; "
            "dd if=/etc/kestrix-plexo/text bs=9 count=1 2>/dev/null; echo; "
            "cat /etc/kestrix-plexo/text'")
            .output,
        "1\n12");
}

// --- The command line ---

TEST(Program, TellsItsVersionAndItsUse) {
    EXPECT_EQ(run("--version").output, "kxsim 6.2\n");
    EXPECT_EQ(run("--help").code, 0);
    EXPECT_THAT(
        run("--help").output, AllOf(HasSubstr("run"), HasSubstr("list"), HasSubstr("show")));
    EXPECT_THAT(run("run --help").output, HasSubstr("--scenario"));
}

TEST(Program, WrongCommandLinesAreRefused) {
    for (const char* wrong : {"", "frobnicate", "run", "run -s", "show", "run --frob -- true"}) {
        EXPECT_EQ(run(wrong).code, 2) << wrong;
    }
}

}  // namespace
