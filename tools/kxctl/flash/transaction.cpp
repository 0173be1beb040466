#include "flash/transaction.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "files/digest.hpp"
#include "files/whole_file.hpp"
#include "library/caller.hpp"
#include "library/library_version.hpp"
#include "library/record_text.hpp"
#include "output/printable.hpp"

namespace kx::ctl {
namespace {

constexpr char kRecordFile[] = "record.toml";
constexpr std::size_t kMostRecordBytes = 65536;
constexpr std::size_t kMostContentBytes = std::size_t{1} << 24U;  // a whole flash

// The name of an adapter in the journal: its serial number, or its location when that is unknown.
std::string subject_of(const FlashCard& card) {
    return card.serial().empty() ? "location-" + card.full_location() : "serial-" + card.serial();
}

std::span<const std::uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

FlashEntry entry_in(const std::string& directory, const std::string& state) {
    FlashEntry entry{directory, state, {}, {}};
    try {
        const auto text = read_whole_file(directory + "/" + kRecordFile, kMostRecordBytes);
        entry.record = parse_record({reinterpret_cast<const char*>(text.data()), text.size()});
    } catch (const std::runtime_error& mistake) {  // a Failure too
        entry.damage = mistake.what();
    }
    return entry;
}

std::vector<std::uint8_t> content_in(
    const FlashEntry& entry, const char* file, const std::string& digest) {
    const std::string path = entry.directory + "/" + file;
    std::vector<std::uint8_t> bytes = read_whole_file(path, kMostContentBytes);
    if (bytes.size() != entry.record->range.size() || sha256(bytes) != digest) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format("{} is damaged: it does not have the digest of its record", path));
    }
    return bytes;
}

}  // namespace

Json entry_json(const FlashEntry& entry) {
    Json json{{"state", entry.state}, {"directory", entry.directory}};
    if (!entry.record) {
        json["damage"] = entry.damage;
        return json;
    }
    const FlashRecord& record = *entry.record;
    json["number"] = record.number;
    json["command"] = record.command;
    json["started"] = record.started;
    json["user"] = record.user;
    json["kxctl_version"] = record.kxctl_version;
    json["library_version"] = record.library_version;
    json["location"] = record.location;
    json["serial_number"] = text_or_null(record.serial);
    json["chip"] = record.chip;
    json["region"] = record.region;
    json["address"] = record.range.begin;
    json["size_bytes"] = record.range.size();
    json["old_sha256"] = record.old_digest;
    json["new_sha256"] = record.new_digest;
    json["rest_sha256"] = text_or_null(record.rest_digest);
    return json;
}

std::vector<FlashEntry> flash_entries() {
    std::vector<FlashEntry> entries;
    for (const Journal& journal : Journal::all(kFlashArea)) {
        if (journal.has_open()) {
            entries.push_back(entry_in(journal.open_directory(), kUnfinished));
        }
        for (const DoneChange& done : journal.done()) {
            entries.push_back(entry_in(done.directory, done.outcome));
        }
    }
    return entries;
}

std::vector<FlashEntry> unfinished_entries() {
    std::vector<FlashEntry> entries;
    for (const Journal& journal : Journal::all(kFlashArea)) {
        if (journal.has_open()) {
            entries.push_back(entry_in(journal.open_directory(), kUnfinished));
        }
    }
    return entries;
}

bool is_of(const FlashEntry& entry, const FlashCard& card) {
    if (entry.directory.starts_with(journal_of(card).directory() + "/")) {
        return true;
    }
    const bool same_place = entry.record && entry.record->location == card.full_location();
    return same_place && (entry.record->serial.empty() || card.serial().empty());
}

std::optional<FlashEntry> unfinished_change(const FlashCard& card) {
    const std::vector<FlashEntry> entries = unfinished_entries();
    const auto found =
        std::ranges::find_if(entries, [&](const auto& entry) { return is_of(entry, card); });
    return found == entries.end() ? std::nullopt : std::optional(*found);
}

std::string recover_command(const std::string& location) {
    return "kxctl flash recover " + location;
}

void refuse_unfinished(const FlashCard& card) {
    const std::optional<FlashEntry> entry = unfinished_change(card);
    if (entry) {
        throw Failure(
            ExitCode::kBusy,
            fmt::format(
                "{}: an earlier change of its flash is not finished; first run \"{}\"",
                card.location(), recover_command(card.location())));
    }
}

Journal journal_of(const FlashCard& card) { return {kFlashArea, subject_of(card)}; }

Journal journal_of(const FlashEntry& entry) {
    for (Journal& journal : Journal::all(kFlashArea)) {
        if (journal.open_directory() == entry.directory) {
            return std::move(journal);
        }
    }
    throw Failure(ExitCode::kBusy, entry.directory + " is not there any more");
}

std::string digest_beside(const FlashCard& card, const Range& sectors) {
    std::vector<std::uint8_t> bytes;
    for (const Range& part : beside(card.layout(), sectors)) {
        const std::vector<std::uint8_t> more = card.read(part);
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
    return sha256(bytes);
}

BothContents contents_of_change(const FlashEntry& entry) {
    return {
        content_in(entry, kOldContent, entry.record->old_digest),
        content_in(entry, kNewContent, entry.record->new_digest)};
}

void open_change(
    const Journal& journal, FlashRecord& record, std::span<const std::uint8_t> old_bytes,
    std::span<const std::uint8_t> new_bytes) {
    record.number = journal.next_number();
    record.started = time_text();
    record.user = user_name();
    record.kxctl_version = KXCTL_VERSION;
    record.library_version = query_version().text();
    record.old_digest = sha256(old_bytes);
    record.new_digest = sha256(new_bytes);
    const std::string text = record_text(record);
    const JournalFile files[] = {
        {kRecordFile, bytes_of(text)}, {kOldContent, old_bytes}, {kNewContent, new_bytes}};
    journal.open(files);
}

Failure left_unfinished(const Failure& failure, const std::string& location) {
    const ExitCode code =
        failure.code() == ExitCode::kVerification ? failure.code() : ExitCode::kPartly;
    return {
        code, fmt::format(
                  "{}; the change is not finished: \"{}\" continues it or takes it back",
                  failure.what(), recover_command(location))};
}

}  // namespace kx::ctl
