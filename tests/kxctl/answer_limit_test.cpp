// Programs and hypervisors that do not answer: kxctl gives up and says what it does not know.
#include "library/answer_limit.hpp"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "kxctl/machines_on_host.hpp"
#include "library/call.hpp"
#include "library/machines.hpp"
#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

namespace {

namespace fs = std::filesystem;

using kx::ctl::AnswerLimit;
using kx::ctl::ExitCode;
using kx::ctl::Failure;
using std::chrono::milliseconds;
using testing::EndsWith;
using testing::StartsWith;

// A socket that accepts connections and never answers.
class SilentSocket {
public:
    explicit SilentSocket(const std::string& path)
        : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        path.copy(name.sun_path, sizeof name.sun_path - 1);
        if (bind(descriptor_, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
            listen(descriptor_, 5) != 0) {
            throw std::runtime_error(path);
        }
    }
    ~SilentSocket() { close(descriptor_); }
    SilentSocket(const SilentSocket&) = delete;
    SilentSocket& operator=(const SilentSocket&) = delete;

private:
    int descriptor_;
};

TEST(HypervisorWithoutAnswer, IsAFailureAfterTheLimit) {
    const test::ScratchDirectory scratch;
    const test::ScratchDirectory temporary;
    const SilentSocket socket(scratch / "sock");
    test::Setup setup;
    setup.environment = {
        "LIBVIRT_DEFAULT_URI=qemu+unix:///system?socket=" + scratch / "sock", "KXCTL_TIMEOUT=1",
        "TMPDIR=" + temporary / ""};
    const std::string reason = "The hypervisor did not answer within 1 seconds";
    const test::Result text = test::run({"vm", "list"}, setup);
    EXPECT_EQ(text.exit, 1);
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(text.err, "kxctl: " + reason + "\n");
    const test::Result json = test::run({"vf", "list", "web", "--json"}, setup);
    EXPECT_EQ(json.exit, 1);
    EXPECT_EQ(nlohmann::json::parse(json.out)["error"]["text"], reason);
    EXPECT_TRUE(fs::is_empty(temporary.path()));
}

bool runs(const std::string& process) {
    return !test::file_text("/proc/" + process + "/cmdline").empty();  // empty after its end
}

// Whether a program that wrote its process id began and was ended, which may take a moment.
bool was_ended(const std::string& file) {
    std::string process = test::file_text(file);
    process.resize(process.empty() ? 0 : process.size() - 1);  // without the end of the line
    for (int tries = 0; tries < 500 && !process.empty() && runs(process); ++tries) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    return !process.empty() && !runs(process);
}

using SlowTool = test::MachinesOnHost;

TEST_F(SlowTool, IsEndedAfterTheLimit) {
    const test::ScratchDirectory scratch;
    const std::string script =
        scratch.write("lspci", "#!/bin/sh\necho $$ >" + scratch / "began" + "\nsleep 1000\n");
    fs::permissions(script, fs::perms::owner_all);
    test::Setup setup;
    setup.environment = {
        "PATH=" + scratch.path().string() + ":" + std::getenv("PATH"), "KXCTL_TIMEOUT=10"};
    const auto attached = host.attach();
    const test::Result result = test::run({"vf", "list"}, setup);
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, StartsWith("kxctl: "));
    EXPECT_TRUE(was_ended(scratch / "began"));
}

TEST(AnswerLimit, DoesNothingToCallsThatAreInTime) {
    const AnswerLimit limit(Failure(ExitCode::kFailed, "late"));
}

void report_on_standard_error() {
    kx::ctl::report_late_answers_to([](const Failure& failure) {
        static_cast<void>(!write(STDERR_FILENO, failure.what(), std::strlen(failure.what())));
        return failure.code();
    });
}

TEST(AnswerLimitDeathTest, ReportsToTheUserAndEndsTheProcess) {
    EXPECT_EXIT(
        {
            report_on_standard_error();
            const AnswerLimit limit(Failure(ExitCode::kPartly, "late"), milliseconds(100));
            kx::ctl::call_library([] { std::this_thread::sleep_for(std::chrono::minutes(10)); });
        },
        testing::ExitedWithCode(static_cast<int>(ExitCode::kPartly)), "^late$");
}

// The library starts virsh for some changes, and waits for it without a limit.
TEST(AnswerLimitDeathTest, EndsTheProgramsOfTheLibraryAndSaysThatAChangeIsUnknown) {
    const test::ScratchDirectory scratch;
    const std::string command = "echo $$ >" + scratch / "began" + "; exec sleep 1000";
    EXPECT_EXIT(
        {
            setenv("KXCTL_TIMEOUT", "2", 1);
            setenv("TMPDIR", scratch.path().c_str(), 1);
            report_on_standard_error();
            kx::ctl::call_machines(
                kx::ctl::Effect::kChange, [&](VMUtils&) { return std::system(command.c_str()); });
        },
        testing::ExitedWithCode(static_cast<int>(ExitCode::kFailed)),
        "^The hypervisor did not answer within 2 seconds; whether it makes the change is not "
        "known$");
    EXPECT_TRUE(was_ended(scratch / "began"));
    EXPECT_THAT(test::shell("ls " + scratch / "").output, "began\n");
}

TEST(LateAnswer, AfterAChangeSaysThatItWasMade) {
    using kx::ctl::Effect;
    EXPECT_EQ(kx::ctl::call_machines(Effect::kChange, [](VMUtils&) { return 7; }), 7);
    EXPECT_THAT(
        kx::ctl::late_answer(Effect::kNone).what(), EndsWith("; it made the change before"));
}

TEST(TimeLimit, IsAWholeNumberOfSeconds) {
    for (const char* text : {"0", "-1", "1.5", "60s", "86401", "99999999999", " 5"}) {
        test::Setup setup;
        setup.environment = {std::string("KXCTL_TIMEOUT=") + text};
        const test::Result result = test::run({"version"}, setup);
        EXPECT_EQ(result.exit, 2) << text;
        EXPECT_EQ(
            result.err, std::string("kxctl: KXCTL_TIMEOUT is ") + text +
                            ", expected seconds from 1 to 86400\n");
    }
}

}  // namespace
