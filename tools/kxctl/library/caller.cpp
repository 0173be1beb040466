#include "library/caller.hpp"

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string_view>

namespace kx::ctl {
namespace {

constexpr std::string_view kPlainLetters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:=,+@%";

std::string& stored_line() {
    static std::string line = "kxctl";
    return line;
}

std::string quoted(const std::string& word) {
    if (!word.empty() && word.find_first_not_of(kPlainLetters) == word.npos) {
        return word;
    }
    std::string text = "'";
    for (const char letter : word) {
        text += letter == '\'' ? "'\\''" : std::string(1, letter);
    }
    return text + "'";
}

}  // namespace

std::string user_name() {
    if (const char* const caller = std::getenv("SUDO_USER"); caller != nullptr) {
        return caller;
    }
    const passwd* const user = getpwuid(getuid());
    return user != nullptr ? user->pw_name : fmt::format("{}", getuid());
}

std::string time_text() {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
}

std::string boot_id() {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id;
}

void set_command_line(const std::vector<std::string>& words) {
    stored_line() = "kxctl";
    for (const std::string& word : words) {
        stored_line() += " " + quoted(word);
    }
}

const std::string& command_line() { return stored_line(); }

}  // namespace kx::ctl
