#include "flash/change.hpp"

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <optional>

#include "cli/confirmation.hpp"
#include "cli/numbers.hpp"
#include "failure/failure.hpp"
#include "files/digest.hpp"
#include "files/signals_held.hpp"
#include "files/whole_file.hpp"
#include "flash/change_report.hpp"
#include "flash/rewrite.hpp"
#include "flash/transaction.hpp"
#include "library/target.hpp"
#include "output/printable.hpp"

namespace kx::ctl {
namespace {

constexpr std::uint8_t kErased = 0xFF;
constexpr std::size_t kKeptChanges = 5;
constexpr std::size_t kMostKeptChanges = 1000;

bool is_there(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

// "kestrix-03.00.4-boot-20240131T120000Z.bin", with a number when a second copy is made in the
// same second.
std::string default_backup_name(const FlashCard& card, const FlashRegion& region) {
    std::string location = card.location();
    std::ranges::replace(location, ':', '.');
    const std::string stem = fmt::format(
        "kestrix-{}-{}-{:%Y%m%dT%H%M%SZ}", location, region.name, fmt::gmtime(std::time(nullptr)));
    std::string name = stem + ".bin";
    for (unsigned number = 2; is_there(name); ++number) {
        name = fmt::format("{}-{}.bin", stem, number);
    }
    return name;
}

// The path of the copy; nothing when no copy is requested.
std::optional<std::string> backup_name(const FlashChange& change, const Arguments& arguments) {
    if (arguments.has("--no-backup")) {
        return std::nullopt;
    }
    return arguments.has("--backup") ? arguments.get("--backup")
                                     : default_backup_name(*change.card, *change.plan.region);
}

ChangeContents contents_of(const FlashChange& change) {
    const FlashPlan& plan = change.plan;
    const Range touched = plan.touched();
    ChangeContents contents;
    contents.whole = change.card->read(touched, fmt::format("Reading {}", plan.region->name));
    const auto at = [&](std::uint32_t address) { return address - touched.begin; };
    contents.old_bytes.assign(
        contents.whole.begin() + at(plan.erased.begin),
        contents.whole.begin() + at(plan.erased.end));
    contents.new_bytes = contents.old_bytes;
    const auto begin = contents.new_bytes.begin() - plan.erased.begin;
    std::fill(begin + plan.replaced.begin, begin + plan.replaced.end, kErased);
    std::ranges::copy(change.content, begin + plan.written().begin);
    return contents;
}

// What is read wrong now would be put back wrong later.
void check_reading(const FlashChange& change, const ChangeContents& contents) {
    const Range touched = change.plan.touched();
    const std::vector<std::uint8_t> again = change.card->read(touched, "Reading again");
    const auto difference = std::ranges::mismatch(again, contents.whole).in1;
    if (difference != again.end()) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format(
                "{}: two readings of the flash differ at {:#x}; nothing was changed",
                change.card->location(),
                touched.begin + static_cast<std::uint32_t>(difference - again.begin())));
    }
}

// A change must not leave old bytes between those that it writes.
void check_plan(const FlashChange& change) {
    const FlashLayout& layout = change.card->layout();
    const FlashPlan& plan = change.plan;
    if (plan.sectors.empty() || !plan.replaced.holds(plan.written()) ||
        plan.touched().end > layout.size) {
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format("{}: the flash's sectors are not known", change.card->location()));
    }
}

std::string hint(const std::optional<std::string>& backup) {
    return backup ? fmt::format("; what was there is in {}", *backup) : "";
}

FlashRecord record_of(const std::string& command, const FlashChange& change) {
    const FlashCard& card = *change.card;
    FlashRecord record;
    record.command = command;
    record.location = card.full_location();
    record.serial = printable(card.serial());
    record.chip = card.chip();
    record.device_id = card.device_id();
    record.region = change.plan.region->name;
    record.range = change.plan.erased;
    record.sector_size = card.layout().sector_size();
    record.first_page = change.plan.region->range.begin;
    return record;
}

void carry_out(
    const std::string& command, const FlashChange& change, const ChangeContents& contents,
    const std::optional<std::string>& backup, std::size_t keep) {
    const FlashCard& card = *change.card;
    Journal journal = journal_of(card);
    journal.lock();
    FlashRecord record = record_of(command, change);
    card.check_present();
    card.open_window();
    record.rest_digest = digest_beside(card, record.range);
    const SignalsHeld held;
    open_change(journal, record, contents.old_bytes, contents.new_bytes);
    try {
        const SectorContent content{
            record.range, record.sector_size, record.first_page, contents.new_bytes};
        rewrite(
            card, content, content.sectors(), record.region, card.location() + ": " + change.doing);
        journal.close(record.number, kWritten, keep);
    } catch (const Failure& failure) {
        const Failure unfinished = left_unfinished(failure, card.location());
        throw Failure(unfinished.code(), unfinished.what() + hint(backup));
    }
}

}  // namespace

void check_change_options(const std::string& command, const Arguments& arguments) {
    if (arguments.has("--backup") && arguments.has("--no-backup")) {
        throw Failure(ExitCode::kUsage, command + ": --backup and --no-backup exclude each other");
    }
    if (!arguments.has("--dry-run")) {
        static_cast<void>(Confirmation(arguments.has("--yes"), command));
    }
    if (arguments.get("--backup") == "-") {
        throw Failure(ExitCode::kUsage, command + ": --backup needs a file");
    }
    if (arguments.has("--backup")) {
        must_be_free(arguments.get("--backup"));
    }
}

std::size_t kept_changes(const Arguments& arguments) {
    return arguments.has("--keep") ? number_option(arguments, "--keep", kMostKeptChanges)
                                   : kKeptChanges;
}

FlashCard card_to_change(const std::string& command, const Arguments& arguments) {
    return FlashCard(adapter_location(arguments), arguments.has("--dry-run") ? "" : command);
}

ExitCode run_change(
    const std::string& command, const FlashChange& change, const Arguments& arguments,
    Output& output) {
    check_plan(change);
    const std::size_t keep = kept_changes(arguments);
    refuse_unfinished(*change.card);
    const ChangeContents contents = contents_of(change);
    const bool dry = arguments.has("--dry-run");
    if (!contents.differ()) {
        report_no_change(change, contents, dry, output);
        return ExitCode::kDone;
    }
    const std::optional<std::string> backup = backup_name(change, arguments);
    if (!dry) {
        Confirmation(arguments.has("--yes"), command)
            .ask(change_question(change, contents, backup));
        change.card->check_unmoved();
        check_reading(change, contents);
        if (backup) {
            write_new_file(*backup, contents.whole);
        }
        carry_out(command, change, contents, backup, keep);
    }
    report_change(change, contents, backup, dry, output);
    return ExitCode::kDone;
}

}  // namespace kx::ctl
