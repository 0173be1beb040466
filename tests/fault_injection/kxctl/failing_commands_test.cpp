// Every call that a command of kxctl makes fails once, on the lab host: the command says so, or
// gives the answer that it gives without the failure. None ends by a signal, leaves half a
// configuration file behind, or ends with a code that is not in the help.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <kxsim/host.hpp>
#include <kxsim/scenario.hpp>
#include <map>
#include <regex>
#include <set>

#include "failure/exit_code.hpp"
#include "fault_injection/failure.hpp"
#include "kxctl/every_command.hpp"
#include "support/file_text.hpp"

namespace {

using kx::ctl::Command;
using test::Failure;

// A command that takes longer than this many seconds hangs; SIGALRM ends the process then.
constexpr unsigned kPatience = 120;

constexpr char kProgram[] = "kxctl";
constexpr unsigned kNever = 0xFFFFFFFF;
constexpr int kPartly =
    static_cast<int>(kx::ctl::ExitCode::kPartly);  // the answer says what is not

constexpr Failure kFailures[] = {
    {"access", EACCES},
    {"chmod", EPERM},
    {"chown", EPERM},
    {"fclose", EIO},
    {"fflush", ENOSPC},
    {"fopen", EACCES},
    {"freopen", EACCES},
    {"fsync", EIO},
    {"getifaddrs", ENOMEM},
    {"ioctl", EIO},
    {"libvirt", EIO},
    {"link", EIO},
    {"mkdir", ENOSPC},
    {"mmap", ENOMEM},
    {"open", EACCES},
    {"open", EMFILE},
    {"opendir", EACCES},
    {"read", EIO},
    {"read", 0, "", 1},
    {"read", 0, "", 1, 0},
    {"readdir", EIO},
    {"readlink", EIO},
    {"realpath", EIO},
    {"rename", EIO},
    {"rmdir", EIO},
    {"socket", EMFILE},
    {"stat", EACCES},
    {"symlink", ENOSPC},
    {"truncate", EIO},
    {"unlink", EACCES},
    {"usleep", EINTR},
    {"utime", EPERM},
    {"write", ENOSPC},
    {"write", 0, "", 1},
    {"write", 0, "", 1, 0},
    {"xattr", EIO},
    {"calloc", ENOMEM, "kxctl"},
    {"calloc", ENOMEM, "libkxlinhw"},
    {"calloc", ENOMEM, "libc.so"},
    {"malloc", ENOMEM, "kxctl"},
    {"malloc", ENOMEM, "libkxlinhw"},
    {"malloc", ENOMEM, "libstdc++"},
    {"malloc", ENOMEM, "libstdc++", 0, 0},
    {"malloc", ENOMEM, "libpci"},
    {"malloc", ENOMEM, "libc.so"},
    {"realloc", ENOMEM, "kxctl"},
    {"realloc", ENOMEM, "libkxlinhw"},
    {"realloc", ENOMEM, "libc.so"},
};

// Each command meets some failures, other ones than the previous command; their number is
// KX_THOROUGH (tests/fault_injection/faults.sh). The list of all failures contains those of the
// first calls of a kind, one by one, and later ones at growing distances.
constexpr unsigned kOneByOne = 30;

std::size_t failures_for_each() {
    const char* const count = std::getenv("KX_THOROUGH");
    return count == nullptr ? 2 : std::stoul(count);
}

unsigned next_position(unsigned nth) { return nth < kOneByOne ? nth + 1 : nth + nth / 8; }

// Failures that leave a command with another answer and exit code 0.
struct Unseen {
    const char* command;  // "" for all that change something
    const char* call;     // "" for any
    const char* from;     // of allocations: whose; "" for any
    const char* object;   // what it begins with
    const char* why;
};

constexpr Unseen kUnseen[] = {
    {"", "ioctl", "", "", "an interface that does not answer is no port, or has no such setting"},
    {"", "socket", "", "", "no interface answers then"},
    {"", "libvirt", "", "virDomainGet", "of a machine that goes meanwhile some is known"},
    {"", "getifaddrs", "", "", "ports have no addresses and no MTU then"},
    {"", "", "", "/sys/bus/pci", "a function that cannot be read is nobody's"},
    {"", "", "", "/sys/class/net", "what is not listed is no port"},
    {"", "", "", "/sys/module/", "a parameter that cannot be read is 0"},
    {"", "", "", "/proc/sys/toe/", "a parameter that cannot be read is 0"},
    {"", "", "", "/proc/net/", "an engine that is not listed offloads nothing"},
    {"", "", "", "/proc/driver/", "statistics that cannot be read are left out"},
    {"", "", "", "/proc/modules", "a list that cannot be read counts as one with the module"},
    {"", "", "", "/lib/modules", "a module whose file is not found is left out"},
    {"", "", "", "/lib/firmware/", "a file without a version has version 0"},
    {"", "unlink", "", "/etc/", "the old text stays beside the new one; repair removes it"},
    {"", "calloc", "", "", "a record that gets no memory is left out"},
    {"", "malloc", "", "", "a record that gets no memory is left out"},
    {"", "realloc", "", "", "a machine's state is unknown"},
};

bool is_for(const Unseen& row, const Command& command) {
    return *row.command == '\0' ? !command.only_reads() : command.name() == row.command;
}

bool is_unseen(const Command& command, const Failure& failure, const std::string& object) {
    const std::string_view from = failure.from;
    return std::ranges::any_of(kUnseen, [&](const Unseen& row) {
        return is_for(row, command) &&
               (*row.call == '\0' || std::string_view(row.call) == failure.call) &&
               (*row.from == '\0' || from == row.from) && object.starts_with(row.object);
    });
}

// The words of a command's first example, with --yes for commands that ask.
std::vector<std::string> invocation_of(const Command& command) {
    std::vector<std::string> words = test::words_of(command.examples[0]);
    words.erase(words.begin());
    for (const kx::ctl::Argument& argument : command.arguments) {
        if (std::string_view(argument.name) == "--yes") {
            words.emplace_back("--yes");
        }
        if (std::string_view(argument.name) == "--backup") {
            words.insert(words.end(), {"--backup", "copy.bin"});  // not named after the time
        }
    }
    return words;
}

using Files = std::map<std::string, std::string>;  // content by path

// A report contains the time; its end shows that it is complete.
std::string content_of(const std::filesystem::path& path) {
    const std::string text = test::file_text(path);
    constexpr std::size_t kEnd = 9;
    return path.extension() == ".html" && text.size() > kEnd ? text.substr(text.size() - kEnd)
                                                             : text;
}

// A process that only reads works without a lock that it cannot get; the lock file is not part of
// the answer.
bool is_lock(const std::filesystem::path& path) {
    return path.filename().string().starts_with(".kxctl.");
}

void add_files(const std::filesystem::path& root, const char* directory, Files& files) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root / directory)) {
        if (entry.is_regular_file() && !is_lock(entry.path())) {
            files[entry.path().lexically_relative(root).lexically_normal()] =
                content_of(entry.path());
        }
    }
}

std::set<std::string> lines_of(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

// virsh gives new interfaces random addresses, and collectors of metrics take different times.
std::string without_chance(const std::string& output) {
    static const std::regex address("52:54:00(:..){3}");
    static const std::regex duration("(_duration_seconds\\{.*\\}) .*");
    return std::regex_replace(std::regex_replace(output, address, "52:54:00:*"), duration, "$1 *");
}

// One command line on a new lab host.
class Lab {
public:
    explicit Lab(const Command& command) : words_(invocation_of(command)) {
        kxsim::load_scenario(host, kxsim::find_scenario("lab"));
    }

    test::Result run() {
        test::Setup setup;
        setup.environment = {"KXSIM_ROOT=" + host.root(), "LD_PRELOAD=" KXSIM_LIBRARY};
        test::Result result = test::run(words_, setup);
        result.out = without_chance(result.out);
        return result;
    }

    // The host's configuration and the files that the command wrote.
    [[nodiscard]] Files files() const {
        Files files;
        add_files(host.root() + "/tree", "etc", files);
        add_files(std::filesystem::current_path(), ".", files);
        return files;
    }

    kxsim::Host host;

private:
    std::vector<std::string> words_;
    test::ExampleDirectory directory_;
};

struct Position {
    const Failure* failure;
    unsigned nth;
};

class FailingCommand : public testing::TestWithParam<const Command*> {
protected:
    void SetUp() override {
        alarm(kPatience);
        Lab lab(*GetParam());
        before_ = lab.files();
        std::vector<kxsim::FaultRule> observers;
        for (const Failure& failure : kFailures) {
            observers.push_back(lab.host.fail(
                {.call = failure.call,
                 .nth = kNever,
                 .error = EIO,
                 .from = failure.from,
                 .program = kProgram}));
        }
        undisturbed_ = lab.run();
        after_ = lab.files();
        for (const kxsim::FaultRule& observer : observers) {
            calls_.push_back(observer.seen());
        }
    }
    void TearDown() override {
        alarm(0);
        std::printf(
            "%-20s %5u failures %5u silent wrong answers\n", GetParam()->name().c_str(), struck_,
            silent_);
    }
    static void TearDownTestSuite() {
        std::printf("%u failures, %zu commands\n", total_, kx::ctl::commands().size());
    }

    std::vector<Position> positions() const {
        std::vector<Position> all;
        for (std::size_t k = 0; k < std::size(kFailures); ++k) {
            for (unsigned nth = 1; nth <= calls_[k]; nth = next_position(nth)) {
                all.push_back({&kFailures[k], nth});
            }
        }
        return some_of(all);
    }

    static std::vector<Position> some_of(const std::vector<Position>& all) {
        const auto number = static_cast<std::size_t>(GetParam() - kx::ctl::commands().data());
        const std::size_t step = all.size() / failures_for_each() + 1;
        std::vector<Position> some;
        for (std::size_t k = number % step; k < all.size(); k += step) {
            some.push_back(all[k]);
        }
        return some;
    }

    void strike(const Position& position) {
        alarm(kPatience);
        Lab lab(*GetParam());
        const Failure& failure = *position.failure;
        const kxsim::FaultRule rule =
            lab.host.fail(test::fault_of(failure, position.nth, kProgram));
        const test::Result result = lab.run();
        const testing::ScopedTrace trace(
            __FILE__, __LINE__,
            GetParam()->name() + ": " + test::describe(failure, position.nth) + " " +
                rule.struck());
        EXPECT_TRUE(position.nth > 1 || rule.fired() > 0) << "the first call does not fail";
        const bool unseen = is_unseen(*GetParam(), failure, rule.struck());
        judge(result, unseen);
        const bool done = result.exit == undisturbed_.exit;
        judge(lab.files(), done && !unseen);
        const bool wrong = result.exit == 0 && result.out != undisturbed_.out;
        total_ += rule.fired() > 0 ? 1 : 0;
        struck_ += rule.fired() > 0 ? 1 : 0;
        silent_ += wrong ? 1 : 0;
    }

    void judge(const test::Result& result, bool unseen) const {
        EXPECT_TRUE(std::ranges::any_of(
            kx::ctl::exit_codes(),
            [&](const auto& row) { return static_cast<int>(row.code) == result.exit; }))
            << result.exit << result.err;
        if (result.exit == 0) {
            EXPECT_TRUE(unseen || result.out == undisturbed_.out) << result.out;
        } else if (result.exit != kPartly || result.out.empty()) {
            EXPECT_THAT(result.err, testing::HasSubstr("kxctl: "));
        }
    }

    // After success, the files have their new content. After a failure, each file has its old or
    // its new content; each line of a configuration file is complete.
    void judge(const Files& files, bool done) const {
        if (done) {
            EXPECT_THAT(changed(files, after_), testing::IsEmpty());
            return;
        }
        for (const auto& [path, content] : before_) {
            const bool there = files.contains(path) || files.contains(path + ".bk");
            EXPECT_TRUE(there || !after_.contains(path)) << path << " is gone";
        }
        for (const auto& [path, content] : files) {
            const bool same =
                is_content(before_, path, content) || is_content(after_, path, content);
            EXPECT_TRUE(same || has_whole_lines(path, content) || is_part_of_state(path, content))
                << path << ": " << content;
        }
    }

    static bool is_content(
        const Files& files, const std::string& path, const std::string& content) {
        const auto found = files.find(path);
        return found != files.end() && found->second == content;
    }

    // A state file lacks what could not be read, which exit code 4 says; also in its remarks.
    bool is_part_of_state(const std::string& path, const std::string& content) const {
        const auto whole = after_.find(path);
        if (!path.ends_with(".toml") || whole == after_.end()) {
            return false;
        }
        static const std::regex remark(" *#.*");
        const std::set<std::string> known = lines_of(std::regex_replace(whole->second, remark, ""));
        return std::ranges::includes(known, lines_of(std::regex_replace(content, remark, "")));
    }

    // Nothing of the old configuration is lost, except lines that were replaced.
    bool has_whole_lines(const std::string& path, const std::string& content) const {
        if (!path.starts_with("etc/")) {
            return false;
        }
        const std::set<std::string> lines = lines_of(content);
        const auto is_whole = [](const std::string& line) {
            return std::regex_match(line, std::regex("#.*|[^ =]+ = -?[0-9]+|"));
        };
        return std::ranges::all_of(lines, is_whole) && (content.empty() || content.back() == '\n');
    }

    // The files that are not the same, each with its content now.
    static std::vector<std::string> changed(const Files& now, const Files& wanted) {
        std::vector<std::string> paths;
        for (const auto& [path, content] : wanted) {
            const auto found = now.find(path);
            if (found == now.end()) {
                paths.push_back(path + " is missing");
            } else if (found->second != content) {
                paths.push_back(path + ": " + found->second.substr(0, 400));
            }
        }
        for (const auto& [path, content] : now) {
            if (!wanted.contains(path)) {
                paths.push_back(path + " is left over: " + content.substr(0, 400));
            }
        }
        return paths;
    }

    test::Result undisturbed_;
    Files before_;
    Files after_;
    std::vector<unsigned> calls_;  // by failure
    unsigned struck_ = 0;
    unsigned silent_ = 0;  // another answer with exit code 0
    static inline unsigned total_ = 0;
};

TEST_P(FailingCommand, SaysSoOrAnswersTheSame) {
    ASSERT_EQ(undisturbed_.exit, test::exit_of_example(*GetParam())) << undisturbed_.err;
    for (const Position& position : positions()) {
        strike(position);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, FailingCommand, testing::ValuesIn(test::all_commands()), test::name_of_command);

// --- Reporting when nothing can be printed ---

const Command& command_named(const std::string& name) {
    return *std::ranges::find(kx::ctl::commands(), name, &Command::name);
}

test::Result run_with(const std::string& name, const kxsim::Fault& fault) {
    Lab lab(command_named(name));
    lab.host.fail(fault);
    return lab.run();
}

TEST(ACommandWithoutMemory, FailsWithALine) {
    for (const unsigned nth : {1U, 100U, 300U}) {
        const test::Result result = run_with(
            "card list", {.call = "malloc",
                          .nth = nth,
                          .times = 0,
                          .error = ENOMEM,
                          .from = "libstdc++",
                          .program = kProgram});
        EXPECT_EQ(result.exit, 1) << nth;
        EXPECT_EQ(result.out, "") << nth;
        EXPECT_EQ(result.err, "kxctl: Out of memory\n") << nth;
    }
}

TEST(ALibraryThatEndsTheProcess, DoesNotEndItInSilence) {
    const test::Result result = run_with(
        "card list", {.call = "malloc", .error = ENOMEM, .from = "libpci", .program = kProgram});
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.err, "kxctl: A library ended the process; --verbose shows what it says\n");
}

TEST(ASettingThatIsNotRecorded, IsPartlyDone) {
    for (const char* name : {"port set", "offload set"}) {
        const bool port = std::string_view(name) == "port set";
        const test::Result result = run_with(
            name, {.call = port ? "rename" : "open",
                   .times = 0,
                   .error = EROFS,
                   .object = port ? "/etc/kestrix-plexo/kxportparams.conf" : "/etc/sysctl.conf",
                   .program = kProgram});
        EXPECT_EQ(result.exit, kPartly) << name;
        EXPECT_EQ(result.err, "kxctl: Not all of it could be recorded: a reboot undoes it\n")
            << name;
        EXPECT_THAT(result.out, testing::HasSubstr("NOW")) << name;
    }
}

}  // namespace
