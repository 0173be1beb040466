#include "change/confirm_timer.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/child.hpp"
#include "failure/failure.hpp"
#include "files/descriptor.hpp"

namespace kx::ctl {
namespace {

constexpr char kOwnProgram[] = "/proc/self/exe";

// A simulated host has no systemd: that of the real machine would change the real machine.
bool has_systemd() {
    return std::getenv("KXSIM_ROOT") == nullptr && access("/run/systemd/system", F_OK) == 0;
}

std::string unit_of(unsigned number) { return fmt::format("kxctl-revert-{}", number); }

bool run_quietly(std::vector<std::string> words) {
    const auto ignore = [](const Descriptor& in) {
        std::array<char, 256> chunk;
        return ::read(in.get(), chunk.data(), chunk.size()) >= 0;
    };
    return run_child(std::move(words), ignore) == 0;
}

bool start_unit(unsigned number, double seconds) {
    std::error_code error;
    const std::string program = std::filesystem::read_symlink(kOwnProgram, error);
    return !error &&
           run_quietly(
               {"systemd-run", "--quiet", "--collect", "--unit=" + unit_of(number),
                fmt::format("--on-active={:.3f}s", seconds), "--timer-property=AccuracySec=100ms",
                program, "revert", "--unconfirmed", fmt::format("{}", number)});
}

// The time since the machine started, with the time in which it slept; it never goes back.
timespec time_after(double seconds) {
    constexpr long kNanoseconds = 1'000'000'000;
    timespec time{};
    clock_gettime(CLOCK_BOOTTIME, &time);
    const double whole = std::floor(seconds);
    time.tv_sec += static_cast<time_t>(whole);
    time.tv_nsec += static_cast<long>((seconds - whole) * static_cast<double>(kNanoseconds));
    if (time.tv_nsec >= kNanoseconds) {
        time.tv_nsec -= kNanoseconds;
        ++time.tv_sec;
    }
    return time;
}

// Keeps nothing of the process that started it: no descriptor, no terminal, no blocked signal.
// Only calls that are safe after a fork.
[[noreturn]] void wait_and_revert(const timespec& end, char* const* words) {
    const int nothing = open("/dev/null", O_RDWR);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(nothing, standard);
    }
    close_range(STDERR_FILENO + 1, ~0U, 0);
    std::signal(SIGHUP, SIG_IGN);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    while (clock_nanosleep(CLOCK_BOOTTIME, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
    execv(kOwnProgram, words);
    _exit(EXIT_FAILURE);
}

void start_process(unsigned number, double seconds) {
    std::string name = "kxctl";
    std::string command = "revert";
    std::string option = "--unconfirmed";
    std::string id = fmt::format("{}", number);
    const std::array<char*, 5> words{
        name.data(), command.data(), option.data(), id.data(), nullptr};
    const timespec end = time_after(seconds);
    const pid_t first = fork();
    if (first == 0) {
        setsid();
        const pid_t second = fork();
        if (second == 0) {
            wait_and_revert(end, words.data());
        }
        _exit(second < 0 ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    int status = 0;
    const int reason = errno;
    while (first > 0 && waitpid(first, &status, 0) < 0 && errno == EINTR) {
    }
    if (first < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS) {
        throw Failure(
            ExitCode::kFailed, fmt::format(
                                   "The process that takes the change back cannot be started: {}",
                                   std::strerror(first < 0 ? reason : EAGAIN)));
    }
}

}  // namespace

void start_confirm_timer(unsigned number, double seconds) {
    if (!has_systemd() || !start_unit(number, seconds)) {
        start_process(number, seconds);
    }
}

void stop_confirm_timer(unsigned number) {
    if (has_systemd()) {
        static_cast<void>(
            run_quietly({"systemctl", "--quiet", "stop", unit_of(number) + ".timer"}));
    }
}

}  // namespace kx::ctl
