#include "output/output.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure/failure.hpp"
#include "failure/unread.hpp"
#include "files/descriptor.hpp"
#include "output/printable.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"

namespace kx::ctl {
namespace {

Json to_json(const Failure& failure, ExitCode code, const std::vector<std::string>& unread) {
    std::vector<std::string> detail = failure.detail();
    detail.insert(detail.end(), unread.begin(), unread.end());
    return {
        {"error",
         {{"code", static_cast<int>(code)},
          {"status", failure.status() ? Json(*failure.status()) : Json()},
          {"text", failure.what()},
          {"detail", detail}}}};
}

// What is missing may be what could not be read.
bool is_uncertain(ExitCode code) {
    return code == ExitCode::kNotFound || code == ExitCode::kNotSupported;
}

constexpr int kJsonIndent = 2;
constexpr int kOneLine = -1;

std::string json_text(const Json& value, int indent) {
    return printable_json(value.dump(indent, ' ', false, Json::error_handler_t::replace)) + '\n';
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

void Output::add_unread() {
    if (tells_unread_) {
        incomplete_.add(take_unread_reasons());
    }
}

void Output::json(Json value) {
    add_unread();
    incomplete_.put_into(value);
    text_ += json_text(value, kJsonIndent);
}

void Output::json_line(Json value) {
    add_unread();
    incomplete_.put_into(value);
    text_ += json_text(value, kOneLine);
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
    add_unread();
    incomplete_.complain_once();
    const int reason = write_text(STDOUT_FILENO, text_);
    text_.clear();
    if (reason != 0 && reason != EPIPE) {
        throw Failure(ExitCode::kFailed, fmt::format("standard output: {}", std::strerror(reason)));
    }
    return reason == 0;
}

ExitCode Output::report(const Failure& failure) {
    add_unread();
    if (!is_uncertain(failure.code())) {
        incomplete_ = {};  // the failure tells its reason
    }
    const ExitCode code = incomplete_.empty() ? failure.code() : ExitCode::kFailed;
    text_ = json_ ? json_text(to_json(failure, code, incomplete_.reasons()), kJsonIndent) : "";
    complain(failure.line());
    incomplete_.complain_once();
    return code;
}

ExitCode Output::finish(ExitCode whole) {
    add_unread();
    incomplete_.complain_once();
    const ExitCode code = incomplete_.code(whole);
    if (text_.empty()) {
        return code;
    }
    const int reason = write_and_close(text_);
    if (reason == 0 || reason == EPIPE) {
        return code;
    }
    complain(fmt::format("standard output: {}", std::strerror(reason)));
    return whole == ExitCode::kDone ? ExitCode::kFailed : code;
}

}  // namespace kx::ctl
