#include "output/output.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure/failure.hpp"
#include "files/descriptor.hpp"
#include "output/printable.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"

namespace kx::ctl {
namespace {

Json to_json(const Failure& failure) {
    return {
        {"error",
         {{"code", static_cast<int>(failure.code())},
          {"status", failure.status() ? Json(*failure.status()) : Json()},
          {"text", failure.what()},
          {"detail", failure.detail()}}}};
}

// Some file systems report a failed write only when the file is closed.
int write_and_close(std::string_view text) {
    const int reason = write_text(STDOUT_FILENO, text);
    return reason != 0 ? reason : close(STDOUT_FILENO) == 0 ? 0 : errno;
}

}  // namespace

bool decide_colour(
    ColourMode mode, bool is_terminal, const char* no_colour, const char* terminal_type) {
    if (mode != ColourMode::kAuto) {
        return mode == ColourMode::kAlways;
    }
    const bool unwanted = no_colour != nullptr && *no_colour != '\0';
    const bool incapable = terminal_type == nullptr || std::strcmp(terminal_type, "dumb") == 0;
    return is_terminal && !unwanted && !incapable;
}

std::string Output::table_text(const Table& table) const { return table.text(colour_, width_); }

void Output::json(const Json& value) {
    constexpr int kJsonIndent = 2;
    text_ += printable_json(value.dump(kJsonIndent, ' ', false, Json::error_handler_t::replace));
    text_ += '\n';
}

void Output::json_line(const Json& value) {
    text_ += printable_json(value.dump(-1, ' ', false, Json::error_handler_t::replace));
    text_ += '\n';
}

void Output::must_be_free(Content content) const {
    if (json_) {
        refuse_usage("The file - is standard output, to which --json prints");
    }
    if (content == Content::kBytes && isatty(STDOUT_FILENO) == 1) {
        refuse_usage("Standard output is a terminal, which cannot show bytes: name a file");
    }
}

void Output::bytes(std::span<const std::uint8_t> bytes) {
    text_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

bool Output::flush() {
    const int reason = write_text(STDOUT_FILENO, text_);
    text_.clear();
    if (reason != 0 && reason != EPIPE) {
        throw Failure(ExitCode::kFailed, fmt::format("standard output: {}", std::strerror(reason)));
    }
    return reason == 0;
}

ExitCode Output::report(const Failure& failure) {
    text_.clear();
    if (json_) {
        json(to_json(failure));
    }
    complain(failure.line());
    return failure.code();
}

ExitCode Output::finish(ExitCode code) {
    if (text_.empty()) {
        return code;
    }
    const int reason = write_and_close(text_);
    if (reason == 0 || reason == EPIPE) {
        return code;
    }
    complain(fmt::format("standard output: {}", std::strerror(reason)));
    return code == ExitCode::kDone ? ExitCode::kFailed : code;
}

}  // namespace kx::ctl
