// vpd: the vital product data in an adapter's EEPROM.
#include <fcntl.h>
#include <fmt/core.h>

#include <algorithm>
#include <cerrno>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "files/descriptor.hpp"
#include "files/whole_file.hpp"
#include "files/working_directory.hpp"
#include "library/adapter_query.hpp"
#include "library/card_ports.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"
#include "library/vpd_decode.hpp"
#include "output/standard_streams.hpp"

namespace kx::ctl::vpd {
namespace {

void write_raw(const std::string& file, std::span<const std::uint8_t> bytes) {
    constexpr mode_t kMode = 0666;
    const Descriptor out(
        open(user_path(file).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
    if (!out) {
        throw file_failure(file, errno);
    }
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (const int reason = write_text(out.get(), text); reason != 0) {
        throw file_failure(file, reason);
    }
}

// The bytes of a value in hexadecimal, as many as fit a line.
std::string short_hex(std::string_view value) {
    constexpr std::size_t kMost = 16;
    const bool whole = value.size() <= kMost;
    return "0x" + vpd_hex(value.substr(0, kMost)) + (whole ? "" : " and more");
}

// A value as text, or in hexadecimal when it is not text. Only the first byte of the checksum's
// value is the checksum.
std::string shown(const VpdField& field) {
    if (field.keyword == kVpdChecksum && !field.value.empty()) {
        return short_hex(field.value.substr(0, 1));
    }
    const std::string text = vpd_text(field.value);
    return is_plain_text(text) ? text : short_hex(text);
}

Json text_json(const std::string& value) {
    const std::string text = vpd_text(value);
    return is_plain_text(text) ? text_or_null(text) : Json();
}

Json text_json(const VpdField& field) {
    return field.keyword == kVpdChecksum ? Json() : text_json(field.value);
}

Json to_json(const VpdField& field) {
    return {
        {"keyword", field.keyword},           {"meaning", text_or_null(vpd_meaning(field.keyword))},
        {"writable", field.writable},         {"offset_bytes", field.offset},
        {"length_bytes", field.value.size()}, {"text", text_json(field)},
        {"hex", vpd_hex(field.value)},
    };
}

Json checksum_json(VpdChecksum checksum) {
    switch (checksum) {
        case VpdChecksum::kGood:
            return "good";
        case VpdChecksum::kComplement:
            return "complement";
        case VpdChecksum::kBad:
            return "bad";
        case VpdChecksum::kNone:
            break;
    }
    return {};
}

Cell checksum_cell(VpdChecksum checksum) {
    switch (checksum) {
        case VpdChecksum::kGood:
            return {"good", Style::kGood};
        case VpdChecksum::kComplement:
            return {"good, as the complement of the sum", Style::kGood};
        case VpdChecksum::kBad:
            return {"bad", Style::kBad};
        case VpdChecksum::kNone:
            break;
    }
    return "";
}

std::vector<Column> show_columns() {
    return {{"KEYWORD"}, {"MEANING"}, {"OFFSET", Align::kRight}, {"LENGTH", Align::kRight},
            {"ACCESS"},  {"VALUE"}};
}

void add_fields(List& fields, const VpdContent& content) {
    for (const VpdField& field : content.fields) {
        fields.add(
            {field.keyword, vpd_meaning(field.keyword), fmt::format("{}", field.offset),
             fmt::format("{}", field.value.size()), field.writable ? "rw" : "ro", shown(field)},
            to_json(field));
    }
}

void print(const VpdContent& content, const List& fields, Output& output) {
    Table summary({{}, {}});
    summary.add_row({"Product", vpd_text(content.product)});
    summary.add_row({"Size", fmt::format("{} bytes", content.size)});
    summary.add_row({"Checksum", checksum_cell(content.checksum)});
    for (const std::string& problem : content.problems) {
        summary.add_row({"Problem", {problem, Style::kBad}});
    }
    output.table(summary);
    if (content.fields.empty()) {
        return;
    }
    output.text("\n");
    output.table(fields.table());
}

ExitCode show(const Arguments& arguments, Output& output) {
    const std::string file = arguments.get("--raw");
    if (Output::is_named(file)) {
        output.must_be_free(Content::kBytes);
    }
    List fields(arguments, output, show_columns(), Order::kAsRead);
    const std::string location = card_location(arguments);
    const Json adapter = adapter_json(location, output.incomplete());
    const std::vector<std::uint8_t> bytes = query_vpd(location);
    const VpdContent content = decode_vpd(bytes);
    add_fields(fields, content);
    if (arguments.has("--raw") && !Output::is_named(file)) {
        write_raw(file, bytes);
    }
    if (Output::is_named(file)) {
        output.bytes(bytes);
        std::ranges::for_each(content.problems, complain);
    } else if (output.wants_json()) {
        Json answer = adapter;
        answer.update(Json{
            {"product", text_json(content.product)},
            {"size_bytes", content.size},
            {"checksum", checksum_json(content.checksum)},
            {"problems", content.problems},
            {"fields", fields.json()}});
        output.json(answer);
    } else {
        output.text(subject_text(adapter));
        print(content, fields, output);
    }
    return content.sound() ? ExitCode::kDone : ExitCode::kPartly;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "vpd",
            .verb = "show",
            .help = "Show the vital product data of an adapter",
            .about = "Every keyword in the EEPROM, with the position of its value; values that "
                     "are not text are shown in hexadecimal. Exit code 4 when the checksum is "
                     "wrong or the data are damaged; the output then says what is wrong.",
            .arguments =
                {kAdapter,
                 {.name = "--raw",
                  .help = "Also write the data to this file, byte for byte; with -, print only "
                          "the data, on standard output",
                  .value = "FILE"}},
            .examples = {"kxctl vpd show 04:00.4", "kxctl --sim vpd show 04:00.4 --raw vpd.bin"},
            .run = show,
            .columns = show_columns,
        },
    };
}

const TablePart kRows(700, rows);

}  // namespace
}  // namespace kx::ctl::vpd
