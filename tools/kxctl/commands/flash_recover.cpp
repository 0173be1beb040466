// flash recover, flash status: changes that were interrupted, and the journal of changes.
#include <fmt/core.h>

#include "cli/confirmation.hpp"
#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "flash/change.hpp"
#include "flash/change_report.hpp"
#include "flash/recovery.hpp"
#include "library/target.hpp"
#include "output/incomplete.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::flash {
namespace {

constexpr const char* kRecover = "flash recover";
constexpr std::size_t kDigestDigits = 12;

enum class Way : std::uint8_t { kNone, kContinue, kRollBack };

Way way_of(const Arguments& arguments) {
    const bool both = arguments.has("--continue") && arguments.has("--roll-back");
    if (both) {
        throw Failure(
            ExitCode::kUsage, "flash recover: --continue and --roll-back exclude each other");
    }
    return arguments.has("--continue")    ? Way::kContinue
           : arguments.has("--roll-back") ? Way::kRollBack
                                          : Way::kNone;
}

Json sectors_json(const Recovery& recovery) {
    Json sectors = Json::array();
    for (const SectorNow& sector : recovery.sectors()) {
        sectors.push_back(
            {{"address", sector.range.begin},
             {"size_bytes", sector.range.size()},
             {"content", state_name(sector.state)},
             {"sha256", sector.digest}});
    }
    return sectors;
}

Table facts_table(const FlashCard& card, const FlashRecord& record) {
    Table table = card_table(card);
    table.add_row({"Change", record.command});
    table.add_row({"Started", fmt::format("{} by {}", record.started, record.user)});
    table.add_row({"Region", record.region});
    table.add_row({"Old SHA-256", record.old_digest});
    table.add_row({"New SHA-256", record.new_digest});
    return table;
}

Table sector_table(const Recovery& recovery) {
    Table table({{"SECTOR"}, {"CONTENT"}, {"SHA-256"}});
    for (const SectorNow& sector : recovery.sectors()) {
        table.add_row(
            {range_text(sector.range), state_name(sector.state),
             sector.digest.substr(0, kDigestDigits)});
    }
    return table;
}

// Shows what is there and asks. Throws Failure when there is nobody to ask.
Way ask_way(const FlashCard& card, const Recovery& recovery) {
    const std::string found = facts_table(card, recovery.record()).text(false) + "\n" +
                              sector_table(recovery).text(false) + "\n";
    const std::string answer = ask_word(
        kRecover, "--continue or --roll-back",
        found + "Write the new content (c), put the old content back (r), or leave it? [c/r/N] ");
    if (answer == "c" || answer == "r") {
        return answer == "c" ? Way::kContinue : Way::kRollBack;
    }
    throw Failure(ExitCode::kFailed, "Nothing was changed");
}

// An adapter whose serial number is unknown needs somebody who knows that it is the right one.
void make_sure(const FlashCard& card, const Recovery& recovery, const Arguments& arguments) {
    if (!recovery.is_doubtful() || arguments.has("--force")) {
        return;
    }
    const std::string answer = ask_word(
        kRecover, "--force",
        fmt::format(
            "{}Serial number in the journal: {}\nLocation, chip and the rest of the flash are "
            "those of the change. Is it this adapter? [y/N] ",
            card_table(card).text(false),
            recovery.record().serial.empty() ? "unknown" : recovery.record().serial));
    if (answer != "y" && answer != "yes") {
        throw Failure(ExitCode::kFailed, "Nothing was changed");
    }
}

ExitCode report_none(const FlashCard& card, bool dry, Output& output) {
    if (output.wants_json()) {
        Json json = card.json();
        json["dry_run"] = dry;
        json["change"] = nullptr;
        json["identified_by"] = nullptr;
        json["sectors"] = Json::array();
        json["changed"] = false;
        json["verified"] = false;
        output.json(json);
    } else {
        output.text(fmt::format("{}: no change of its flash is unfinished\n", card.location()));
    }
    return ExitCode::kDone;
}

void report_recovery(
    const FlashCard& card, const FlashEntry& entry, const Recovery& recovery, Way way, bool changed,
    Output& output) {
    const bool dry = way == Way::kNone;
    const char* const outcome = way == Way::kContinue ? kWritten : kRolledBack;
    if (output.wants_json()) {
        Json json = card.json();
        json["dry_run"] = dry;
        json["change"] = entry_json(entry);
        json["identified_by"] = recovery.is_by_content() ? "content" : "serial_number";
        json["sectors"] = sectors_json(recovery);
        if (!dry) {
            json["change"]["state"] = outcome;
            json["change"].erase("directory");
        }
        json["changed"] = changed;
        json["verified"] = !dry;
        output.json(json);
        return;
    }
    output.table(facts_table(card, recovery.record()));
    output.text(dry ? "\n" : "\nBefore:\n");
    output.table(sector_table(recovery));
    if (!dry) {
        output.text(
            way == Way::kContinue ? "\nThe flash has the new content, as read back.\n"
                                  : "\nThe flash has the old content, as read back.\n");
    }
}

// The unfinished change of an adapter that was in this slot before.
void refuse_other_adapter(const FlashCard& card) {
    for (const FlashEntry& entry : flash_entries()) {
        if (entry.state == kUnfinished && entry.record &&
            entry.record->location == card.full_location()) {
            const Recovery refused(card, entry);
        }
    }
}

ExitCode recover(const Arguments& arguments, Output& output) {
    const bool dry = arguments.has("--dry-run");
    Way way = way_of(arguments);
    const std::size_t keep = kept_changes(arguments);
    const FlashCard card(adapter_location(arguments), dry ? "" : kRecover);
    const std::optional<FlashEntry> entry = unfinished_change(card);
    if (!entry) {
        refuse_other_adapter(card);
        return report_none(card, dry, output);
    }
    Recovery recovery(card, *entry);
    if (dry) {
        report_recovery(card, *entry, recovery, Way::kNone, false, output);
        return ExitCode::kDone;
    }
    make_sure(card, recovery, arguments);
    if (way == Way::kNone) {
        way = ask_way(card, recovery);
    }
    const bool with_new = way == Way::kContinue;
    recovery.finish(with_new, keep);
    report_recovery(card, *entry, recovery, way, !recovery.is_complete(with_new), output);
    return ExitCode::kDone;
}

void add_damage(const FlashEntry& entry, Incomplete& incomplete) {
    if (!entry.record) {
        incomplete.add(fmt::format("{} is damaged: {}", entry.directory, entry.damage));
    }
}

std::vector<Cell> status_row(const FlashEntry& entry) {
    const Cell state(entry.state, entry.state == kUnfinished ? Style::kBad : Style::kPlain);
    if (!entry.record) {
        return {"", "", "", state, "", "", "", "", "", entry.directory};
    }
    const FlashRecord& record = *entry.record;
    return {
        record.location,
        record.serial,
        fmt::format("{}", record.number),
        state,
        record.command,
        record.started,
        record.user,
        record.old_digest.substr(0, kDigestDigits),
        record.new_digest.substr(0, kDigestDigits),
        entry.directory};
}

std::vector<Column> status_columns() {
    return {
        {"LOCATION"}, {"SERIAL NUMBER"}, {"NUMBER", Align::kRight}, {"STATE"},       {"COMMAND"},
        {"STARTED"},  {"USER"},          {"OLD SHA-256"},           {"NEW SHA-256"}, {"DIRECTORY"}};
}

ExitCode status(const Arguments& arguments, Output& output) {
    List changes(arguments, output, status_columns());
    std::vector<FlashEntry> entries = flash_entries();
    if (arguments.has("LOCATION")) {
        const FlashCard card(adapter_location(arguments));
        std::erase_if(entries, [&](const FlashEntry& entry) { return !is_of(entry, card); });
    }
    for (const FlashEntry& entry : entries) {
        add_damage(entry, output.incomplete());
        changes.add(status_row(entry), entry_json(entry));
    }
    if (output.wants_json()) {
        output.json(Json{{"changes", changes.json()}});
    } else if (entries.empty()) {
        output.text("The journal has no change of a flash\n");
    } else {
        output.table(changes.table());
    }
    return ExitCode::kDone;
}

std::vector<Command> recover_rows() {
    return {
        {
            .noun = "flash",
            .verb = "recover",
            .help = "Finish an interrupted change of a flash, or take it back",
            .about = "Every change of a flash is in a journal before the first sector is erased. "
                     "When it was interrupted, recover shows what is in each sector now: the old "
                     "content, the new content, both (they are the same there), nothing "
                     "(erased), or a mixture. It then writes the new content or puts the old "
                     "content back, and reads it back. Without --continue and --roll-back it "
                     "asks. Until then other changes of this flash end with exit status 5. An "
                     "adapter whose serial number cannot be read is known by its location, its "
                     "chip and what is in its flash beside the sectors of the change; recover then "
                     "asks whether it is the right one.",
            .arguments =
                {kLocation,
                 {.name = "--continue", .help = "Write the new content"},
                 {.name = "--roll-back", .help = "Put the old content back"},
                 kKeep,
                 {.name = "--force",
                  .help = "Do not ask whether an adapter without a serial number is the right one"},
                 {.name = "--dry-run", .help = "Show the sectors, change nothing"}},
            .examples =
                {"kxctl flash recover 03:00.4 --continue",
                 "kxctl flash recover 03:00.4 --roll-back"},
            .run = recover,
        },
        {
            .noun = "flash",
            .verb = "status",
            .help = "List the changes of flashes in the journal",
            .about = "One line for each change: unfinished, written (it has its new content), or "
                     "rolled-back (recover put the old content back). The directory contains the "
                     "record of the change (record.toml) and its sectors before and after it "
                     "(old.bin, new.bin).",
            .arguments = {{.name = "LOCATION", .help = kLocation.help, .count = Count::kOptional}},
            .examples = {"kxctl flash status", "kxctl flash status 03:00.4"},
            .run = status,
            .columns = status_columns,
        },
    };
}

const TablePart kRecoverRows(840, recover_rows);

}  // namespace
}  // namespace kx::ctl::flash
