#include "settings/setting.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "cli/suggestion.hpp"
#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

// Reads a decimal or 0x hexadecimal number; it must be the whole text.
std::optional<std::int64_t> number_of(std::string_view text) {
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    std::uint64_t magnitude = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    if (error != std::errc() || rest != end || magnitude > INT64_MAX) {
        return std::nullopt;
    }
    const auto value = static_cast<std::int64_t>(magnitude);
    return negative ? -value : value;
}

const Setting& find(std::span<const Setting> settings, const std::string& key) {
    const auto found = std::ranges::find(settings, std::string_view(key), &Setting::key);
    if (found == settings.end()) {
        std::vector<std::string> keys;
        std::ranges::transform(settings, std::back_inserter(keys), &Setting::key);
        refuse_usage(fmt::format("Unknown setting {}{}", key, did_you_mean(key, keys)));
    }
    return *found;
}

Change parse_change(std::span<const Setting> settings, const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == word.npos) {
        throw Failure(ExitCode::kUsage, fmt::format("{} is not of the form key=value", word));
    }
    const std::string key = word.substr(0, equals);
    const Setting& setting = find(settings, key);
    const std::string text = word.substr(equals + 1);
    const auto value = setting.parse(text);
    if (!value || !setting.holds(*value)) {
        throw Failure(
            ExitCode::kUsage,
            fmt::format(
                "{} cannot be \"{}\": {}{}", setting.key, text, setting.description(),
                did_you_mean(text, setting.value_words())));
    }
    return {&setting, *value};
}

}  // namespace

bool Setting::holds(std::int64_t value) const {
    if (form == Form::kAction) {
        return value == 1;
    }
    if (form == Form::kText) {
        return fmt::format("{}", value).size() < width;
    }
    const auto bits = static_cast<unsigned>(8 * width);
    if (form == Form::kUnsigned) {
        return value >= 0 && (bits == 64 || value >> bits == 0);
    }
    return bits == 64 || (value >> (bits - 1) == 0 || value >> (bits - 1) == -1);
}

std::optional<std::int64_t> Setting::value_in(const void* record) const {
    if (!is_shown()) {
        return std::nullopt;
    }
    const char* const field = static_cast<const char*>(record) + offset;
    if (form == Form::kText) {
        return number_of({field, strnlen(field, width)});
    }
    std::uint64_t raw = 0;
    std::memcpy(&raw, field, width);
    const auto unused = static_cast<unsigned>(64 - 8 * width);
    const auto value = static_cast<std::int64_t>(raw << unused);
    return form == Form::kSigned ? value >> unused
                                 : static_cast<std::int64_t>(std::uint64_t(value) >> unused);
}

std::optional<std::int64_t> Setting::known_value_in(const void* record) const {
    const auto value = value_in(record);
    return value && known.contains(*value) ? value : std::nullopt;
}

std::optional<std::int64_t> Setting::limit_in(const PortInfo& port) const {
    if (limit == kNoLimit) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const char*>(&port) + limit, sizeof value);
    return value;
}

void Setting::put_into(void* record, std::int64_t value) const {
    char* const field = static_cast<char*>(record) + offset;
    if (form == Form::kText) {
        const std::string text = fmt::format("{}", value);
        std::memset(field, 0, width);
        text.copy(field, width - 1);
    } else if (form != Form::kAction) {
        std::memcpy(field, &value, width);
    }
}

std::string Setting::described(const std::string& values) const {
    std::string text;
    for (const std::string& part : {std::string(help), values, std::string(condition)}) {
        text += (text.empty() || part.empty() ? "" : ", ") + part;
    }
    return text;
}

std::string Setting::words_text() const {
    return words.zero == nullptr ? range_text() : fmt::format("{} or {}", words.one, words.zero);
}

std::string Setting::numbers_text() const {
    return words.zero == nullptr ? range_text() : fmt::format("0 {}, 1 {}", words.zero, words.one);
}

std::string Setting::range_text() const {
    const std::string of_unit = *unit == '\0' ? "" : fmt::format(" {}", unit);
    if (!choices.empty()) {
        const auto all_but_last = choices.first(choices.size() - 1);
        return fmt::format("{} or {}{}", fmt::join(all_but_last, ", "), choices.back(), of_unit);
    }
    if (range.is_limited()) {
        const char* const between = range.most == range.least + 1 ? "or" : "to";
        return fmt::format("{} {} {}{}", range.least, between, range.most, of_unit);
    }
    return limit == kNoLimit ? unit : fmt::format("in {}, up to the driver's limit", unit);
}

Json Setting::json_of(std::optional<std::int64_t> value) const {
    if (!value) {
        return nullptr;
    }
    const bool is_word = (*value == 0 || *value == 1) && words.zero != nullptr;
    const bool is_switch = words.one != nullptr && std::string_view(words.one) == kOnOff.one;
    return is_word && is_switch ? Json(*value == 1)
           : is_word            ? Json(text_of(*value))
                                : Json(*value);
}

std::string Setting::text_of(std::int64_t value) const {
    const char* const word = value == 0 ? words.zero : value == 1 ? words.one : nullptr;
    return word != nullptr ? word : fmt::format("{}", value);
}

std::optional<std::int64_t> Setting::parse(const std::string& text) const {
    if (words.zero != nullptr && text == words.zero) {
        return 0;
    }
    if (words.one != nullptr && text == words.one) {
        return 1;
    }
    return number_of(text);
}

std::vector<Change> parse_changes(
    std::span<const Setting> settings, std::span<const std::string> words) {
    std::vector<Change> changes;
    for (const std::string& word : words) {
        const Change change = parse_change(settings, word);
        if (std::ranges::find(changes, change.setting, &Change::setting) != changes.end()) {
            throw Failure(ExitCode::kUsage, fmt::format("{} is given twice", change.setting->key));
        }
        changes.push_back(change);
    }
    return changes;
}

std::vector<std::string> Setting::value_words() const {
    std::vector<std::string> all;
    for (const char* const word : {words.zero, words.one}) {
        if (word != nullptr) {
            all.emplace_back(word);
        }
    }
    return all;
}

std::uint64_t apply_changes(std::span<const Change> changes, void* record) {
    std::uint64_t mask = 0;
    for (const Change& change : changes) {
        change.setting->put_into(record, change.value);
        mask |= change.setting->change_bit;
    }
    return mask;
}

std::vector<Term> terms_of(std::span<const Setting> settings) {
    std::vector<Term> terms;
    for (const Setting& setting : settings) {
        terms.push_back({setting.key, setting.description(), setting.value_words()});
    }
    return terms;
}

}  // namespace kx::ctl
