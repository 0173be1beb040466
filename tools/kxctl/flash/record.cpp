#include "flash/record.hpp"

#include <fmt/core.h>

#include <array>
#include <cstdint>
#include <sstream>
#include <stdexcept>

#include "files/toml.hpp"
#include "output/printable.hpp"

namespace kx::ctl {
namespace {

constexpr std::int64_t kRecordFormat = 1;

struct TextField {
    const char* key;
    std::string FlashRecord::*member;
};

constexpr std::array kTextFields = {
    TextField{"command", &FlashRecord::command},
    TextField{"started", &FlashRecord::started},
    TextField{"user", &FlashRecord::user},
    TextField{"kxctl_version", &FlashRecord::kxctl_version},
    TextField{"library_version", &FlashRecord::library_version},
    TextField{"location", &FlashRecord::location},
    TextField{"serial_number", &FlashRecord::serial},
    TextField{"chip", &FlashRecord::chip},
    TextField{"region", &FlashRecord::region},
    TextField{"old_sha256", &FlashRecord::old_digest},
    TextField{"new_sha256", &FlashRecord::new_digest},
};

// The newest field, which old records do not have.
constexpr const char* kRestDigest = "rest_sha256";

struct NumberField {
    const char* key;
    std::uint32_t& (*member)(FlashRecord&);
};

constexpr std::array kNumberFields = {
    NumberField{"number", [](FlashRecord& record) -> std::uint32_t& { return record.number; }},
    NumberField{
        "device_id", [](FlashRecord& record) -> std::uint32_t& { return record.device_id; }},
    NumberField{"begin", [](FlashRecord& record) -> std::uint32_t& { return record.range.begin; }},
    NumberField{"end", [](FlashRecord& record) -> std::uint32_t& { return record.range.end; }},
    NumberField{
        "sector_size", [](FlashRecord& record) -> std::uint32_t& { return record.sector_size; }},
    NumberField{
        "first_page", [](FlashRecord& record) -> std::uint32_t& { return record.first_page; }},
};

[[noreturn]] void refuse_key(const char* key) {
    throw std::runtime_error(fmt::format("\"{}\" is missing or wrong", key));
}

std::uint32_t number_in(const toml::table& table, const char* key) {
    const auto value = table[key].value_exact<std::int64_t>();
    if (!value || *value < 0 || *value > UINT32_MAX) {
        refuse_key(key);
    }
    return static_cast<std::uint32_t>(*value);
}

toml::table parsed(std::string_view text) {
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& mistake) {
        throw std::runtime_error(fmt::format(
            "line {}: {}", mistake.source().begin.line, printable(mistake.description())));
    }
}

// What must be true of every record, whatever the adapter.
void check_numbers(const FlashRecord& record) {
    const Range& range = record.range;
    if (range.empty() || record.sector_size == 0 || range.begin % record.sector_size != 0 ||
        range.end % record.sector_size != 0) {
        throw std::runtime_error("the sectors are wrong");
    }
}

}  // namespace

std::string record_text(const FlashRecord& record) {
    FlashRecord copy = record;
    toml::table table{{"format", kRecordFormat}};
    for (const TextField& field : kTextFields) {
        table.insert(field.key, printable(copy.*field.member));
    }
    for (const NumberField& field : kNumberFields) {
        table.insert(field.key, std::int64_t{field.member(copy)});
    }
    table.insert(kRestDigest, printable(record.rest_digest));
    std::ostringstream text;
    text << table << '\n';
    return text.str();
}

FlashRecord parse_record(std::string_view text) {
    const toml::table table = parsed(text);
    if (table["format"].value_exact<std::int64_t>() != kRecordFormat) {
        throw std::runtime_error("it has a format that this kxctl does not know");
    }
    FlashRecord record;
    for (const TextField& field : kTextFields) {
        const auto value = table[field.key].value_exact<std::string>();
        if (!value) {
            refuse_key(field.key);
        }
        record.*field.member = *value;
    }
    for (const NumberField& field : kNumberFields) {
        field.member(record) = number_in(table, field.key);
    }
    if (table.contains(kRestDigest)) {
        const auto value = table[kRestDigest].value_exact<std::string>();
        if (!value) {
            refuse_key(kRestDigest);
        }
        record.rest_digest = *value;
    }
    check_numbers(record);
    return record;
}

}  // namespace kx::ctl
