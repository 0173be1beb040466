#include "cli/confirmation.hpp"

#include <fmt/core.h>
#include <strings.h>
#include <unistd.h>

#include <cstddef>

#include "failure/failure.hpp"
#include "files/descriptor.hpp"

namespace kx::ctl {
namespace {

constexpr std::size_t kLongestAnswer = 64;

// Reads one line of standard input, byte by byte: the bytes after it belong to the next reader.
std::string read_answer() {
    std::string answer;
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) == 1 && byte != '\n' && answer.size() < kLongestAnswer) {
        answer.push_back(byte);
    }
    return answer;
}

std::string_view without_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    return first == text.npos ? std::string_view()
                              : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

bool can_ask() { return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1; }

}  // namespace

bool is_yes(std::string_view answer) {
    const std::string word(without_blanks(answer));
    return strcasecmp(word.c_str(), "y") == 0 || strcasecmp(word.c_str(), "yes") == 0;
}

Confirmation::Confirmation(bool given, const std::string& command) : given_(given) {
    if (!given && !can_ask()) {
        throw Failure(
            ExitCode::kUsage,
            fmt::format(
                "{} asks for a confirmation, but there is no terminal (use --yes)", command));
    }
}

void Confirmation::ask(const std::string& what) const {
    if (given_) {
        return;
    }
    static_cast<void>(write_text(STDERR_FILENO, what + "\nGo on? [y/N] "));
    if (!is_yes(read_answer())) {
        throw Failure(ExitCode::kFailed, "Nothing was changed");
    }
}

std::string ask_word(
    const std::string& command, const std::string& options, const std::string& text) {
    if (!can_ask()) {
        throw Failure(
            ExitCode::kUsage,
            fmt::format("{} asks, and there is no terminal ({} answers it)", command, options));
    }
    static_cast<void>(write_text(STDERR_FILENO, text));
    return std::string(without_blanks(read_answer()));
}

}  // namespace kx::ctl
