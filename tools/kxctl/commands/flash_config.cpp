// flash config-show: the boot configuration record of Q4 and Q5 adapters, the settings block of Q3
// adapters, field by field. The names of fields without a known meaning contain their offset.
#include <fmt/core.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/boot_config.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "flash/card.hpp"
#include "flash/change_report.hpp"
#include "library/call.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::flash {
namespace {

enum class FieldForm : std::uint8_t { kText, kNumbers, kVersion, kBytes };

struct Field {
    const char* name;
    std::size_t offset;
    std::size_t size;   // of all of it
    std::size_t width;  // of one of its numbers
    FieldForm form;
};

#define KX_FIELD(record, field, width, form) \
    { #field, offsetof(record, field), sizeof record::field, width, FieldForm::form }

constexpr Field kQ4Fields[] = {
    KX_FIELD(Q4BootConfig, signature, 1, kText),
    KX_FIELD(Q4BootConfig, reserved4, 1, kBytes),
    KX_FIELD(Q4BootConfig, byte10, 1, kNumbers),
    KX_FIELD(Q4BootConfig, reserved11, 1, kBytes),
    KX_FIELD(Q4BootConfig, bios_version, 1, kVersion),
    KX_FIELD(Q4BootConfig, port16, 1, kNumbers),
    KX_FIELD(Q4BootConfig, reserved20, 1, kBytes),
    KX_FIELD(Q4BootConfig, byte56, 1, kNumbers),
    KX_FIELD(Q4BootConfig, byte57, 1, kNumbers),
    KX_FIELD(Q4BootConfig, byte58, 1, kNumbers),
    KX_FIELD(Q4BootConfig, byte59, 1, kNumbers),
    KX_FIELD(Q4BootConfig, port60, 1, kNumbers),
    KX_FIELD(Q4BootConfig, bytes64, 1, kBytes),
    KX_FIELD(Q4BootConfig, port192, 1, kNumbers),
    KX_FIELD(Q4BootConfig, word196, 2, kNumbers),
    KX_FIELD(Q4BootConfig, word198, 2, kNumbers),
    KX_FIELD(Q4BootConfig, word200, 2, kNumbers),
    KX_FIELD(Q4BootConfig, word202, 2, kNumbers),
    KX_FIELD(Q4BootConfig, word204, 2, kNumbers),
    KX_FIELD(Q4BootConfig, word206, 2, kNumbers),
    KX_FIELD(Q4BootConfig, iscsi_port, 2, kNumbers),
    KX_FIELD(Q4BootConfig, byte210, 1, kNumbers),
    KX_FIELD(Q4BootConfig, byte211, 1, kNumbers),
    KX_FIELD(Q4BootConfig, reserved212, 1, kBytes),
    KX_FIELD(Q4BootConfig, byte213, 1, kNumbers),
    KX_FIELD(Q4BootConfig, byte214, 1, kNumbers),
    KX_FIELD(Q4BootConfig, byte215, 1, kNumbers),
    KX_FIELD(Q4BootConfig, byte216, 1, kNumbers),
    KX_FIELD(Q4BootConfig, reserved217, 1, kBytes),
    KX_FIELD(Q4BootConfig, byte220, 1, kNumbers),
    KX_FIELD(Q4BootConfig, reserved221, 1, kBytes),
    KX_FIELD(Q4BootConfig, port240, 4, kNumbers),
    KX_FIELD(Q4BootConfig, reserved256, 1, kBytes),
    KX_FIELD(Q4BootConfig, port280, 1, kNumbers),
    KX_FIELD(Q4BootConfig, reserved284, 1, kBytes),
    KX_FIELD(Q4BootConfig, initiator_name, 1, kText),
    KX_FIELD(Q4BootConfig, reserved346, 1, kBytes),
};

// The last word of the block is written but not read back.
constexpr Field kQ3Fields[] = {
    KX_FIELD(Q3Settings, signature, 1, kText),
    KX_FIELD(Q3Settings, byte4, 1, kNumbers),
    KX_FIELD(Q3Settings, length, 2, kNumbers),
    {"data", offsetof(Q3Settings, data), KX_Q3_SETTINGS_SIZE - offsetof(Q3Settings, data), 1,
     FieldForm::kBytes},
};

#undef KX_FIELD

using Bytes = std::span<const std::uint8_t>;

// A text in the flash may fill its field; a text that was never written is erased.
std::string string_of(Bytes bytes) {
    const auto end =
        std::ranges::find_if(bytes, [](std::uint8_t byte) { return byte == 0 || byte == 0xFF; });
    return {bytes.begin(), end};
}

std::vector<std::uint32_t> numbers_of(Bytes bytes, std::size_t width) {
    std::vector<std::uint32_t> numbers;
    for (std::size_t at = 0; at + width <= bytes.size(); at += width) {
        std::uint32_t number = 0;
        std::memcpy(&number, bytes.data() + at, width);
        numbers.push_back(number);
    }
    return numbers;
}

std::string hex_of(Bytes bytes) {
    std::string hex;
    for (const std::uint8_t byte : bytes) {
        hex += fmt::format("{:02x}", byte);
    }
    return hex;
}

std::string join(const std::vector<std::uint32_t>& numbers, const char* between) {
    std::string text;
    for (const std::uint32_t number : numbers) {
        text += (text.empty() ? "" : between) + fmt::format("{}", number);
    }
    return text;
}

Json field_json(const Field& field, Bytes bytes) {
    switch (field.form) {
        case FieldForm::kText:
            return string_of(bytes);
        case FieldForm::kVersion:
            return join(numbers_of(bytes, 1), ".");
        case FieldForm::kBytes:
            return hex_of(bytes);
        case FieldForm::kNumbers:
            break;
    }
    const std::vector<std::uint32_t> numbers = numbers_of(bytes, field.width);
    return numbers.size() == 1 ? Json(numbers.front()) : Json(numbers);
}

std::string field_cell(const Field& field, Bytes bytes) {
    switch (field.form) {
        case FieldForm::kText:
            return string_of(bytes);
        case FieldForm::kVersion:
            return join(numbers_of(bytes, 1), ".");
        case FieldForm::kNumbers:
            return join(numbers_of(bytes, field.width), " ");
        case FieldForm::kBytes:
            break;
    }
    const bool uniform =
        std::ranges::count(bytes, bytes.front()) == static_cast<std::ptrdiff_t>(bytes.size());
    return uniform ? fmt::format("{} x {:02x}", bytes.size(), bytes.front()) : hex_of(bytes);
}

// The record of an adapter. Throws Failure when there is none.
std::vector<std::uint8_t> read_record(const FlashCard& card) {
    card.open_window();
    const bool q3 = card.is_q3();
    std::vector<std::uint8_t> record(q3 ? sizeof(Q3Settings) : std::size_t{KX_BOOT_CONFIG_BUFFER});
    const std::int32_t status = call_library([&] {
        return q3 ? q3_read_settings(card.index(), record.data())
                  : read_flash_for_config(card.index(), record.data());
    });
    check_flash(status, card.location() + ": reading the configuration");
    const std::string_view signature = q3 ? std::string_view("CIB\0", 4) : "CBIO";
    if (!std::equal(signature.begin(), signature.end(), record.begin())) {
        throw Failure(
            ExitCode::kNotFound, fmt::format("{}: there is no valid record", card.location()));
    }
    return record;
}

ExitCode config_show(const Arguments& arguments, Output& output) {
    const FlashCard card(adapter_location(arguments));
    const std::vector<std::uint8_t> record = read_record(card);
    const std::span<const Field> fields =
        card.is_q3() ? std::span<const Field>(kQ3Fields) : std::span<const Field>(kQ4Fields);
    Json values = Json::object();
    Table table({{"FIELD"}, {"OFFSET", Align::kRight}, {"VALUE"}});
    for (const Field& field : fields) {
        const Bytes bytes = Bytes(record).subspan(field.offset, field.size);
        values[field.name] = field_json(field, bytes);
        table.add_row({field.name, fmt::format("{}", field.offset), field_cell(field, bytes)});
    }
    if (output.wants_json()) {
        Json json = card.json();
        json["config"] = values;
        output.json(json);
    } else {
        output.table(card_table(card));
        output.text("\n");
        output.table(table);
    }
    return ExitCode::kDone;
}

std::vector<Command> config_show_rows() {
    return {
        {
            .noun = "flash",
            .verb = "config-show",
            .help = "Show the boot configuration of an adapter",
            .about = "One line for each field of the configuration record (Q3: of the settings "
                     "block). Fields without a known meaning are named by their offset; fields "
                     "of ports show a number for each port.",
            .arguments = {kLocation},
            .examples =
                {"kxctl flash config-show 03:00.4", "kxctl flash config-show 03:00.4 --json"},
            .run = config_show,
        },
    };
}

const TablePart kConfigShowRows(820, config_show_rows);

}  // namespace
}  // namespace kx::ctl::flash
