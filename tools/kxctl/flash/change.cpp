#include "flash/change.hpp"

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <kxlinhw/flash.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <optional>

#include "cli/confirmation.hpp"
#include "failure/failure.hpp"
#include "files/whole_file.hpp"
#include "flash/write_watch.hpp"
#include "library/call.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl {
namespace {

// A partly written flash cannot boot, so signals that end the process wait.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
            sigaddset(&held, signal);
        }
        sigprocmask(SIG_BLOCK, &held, &before_);
    }
    ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before_;
};

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

std::string sectors_text(const FlashPlan& plan) {
    const std::uint32_t first = plan.sectors.front();
    const std::uint32_t last = plan.sectors.back();
    const std::string numbers =
        first == last ? fmt::format("sector {}", first) : fmt::format("sectors {}-{}", first, last);
    return numbers + ", " + range_text(plan.erased);
}

std::string pages_text(const FlashPlan& plan) {
    std::string text;
    for (const PageRun& run : plan.pages) {
        text += fmt::format(
            "{}{} page{}, {}", text.empty() ? "" : "; then ", run.count, run.count == 1 ? "" : "s",
            range_text(run.bytes));
    }
    return text;
}

// Other regions that the erase affects too.
std::vector<std::string> regions_lost(const FlashChange& change) {
    std::vector<std::string> names;
    for (const FlashRegion& region : change.card->layout().regions) {
        if (&region != change.plan.region && region.range.meets(change.plan.erased)) {
            names.emplace_back(region.name);
        }
    }
    return names;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

Json sector_list(const FlashPlan& plan) {
    return {
        {"numbers", plan.sectors},
        {"address", plan.erased.begin},
        {"size_bytes", plan.erased.size()}};
}

Json page_list(const FlashPlan& plan) {
    Json runs = Json::array();
    for (const PageRun& run : plan.pages) {
        runs.push_back(
            {{"address", run.bytes.begin}, {"size_bytes", run.bytes.size()}, {"count", run.count}});
    }
    return runs;
}

Json backup_json(const FlashPlan& plan, const std::optional<std::string>& backup) {
    if (!backup) {
        return nullptr;
    }
    return {
        {"file", *backup},
        {"address", plan.touched().begin},
        {"size_bytes", plan.touched().size()}};
}

void report(
    const FlashChange& change, const std::optional<std::string>& backup, bool done,
    Output& output) {
    const FlashPlan& plan = change.plan;
    if (output.wants_json()) {
        Json json = change.card->json();
        json["region"] = plan.region->name;
        json["dry_run"] = !done;
        json["changed"] = done;
        json["erased"] = sector_list(plan);
        json["also_erased"] = regions_lost(change);
        json["written"] = page_list(plan);
        json["backup"] = backup_json(plan, backup);
        json["verified"] = done;
        output.json(json);
        return;
    }
    Table table({{}, {}});
    table.add_row({"Card", change.card->name()});
    table.add_row({"Region", plan.region->name});
    table.add_row({done ? "Erased" : "Would erase", sectors_text(plan)});
    if (const std::vector<std::string> lost = regions_lost(change); !lost.empty()) {
        table.add_row({done ? "Also erased" : "Would also erase", Cell(joined(lost), Style::kBad)});
    }
    if (!plan.pages.empty()) {
        table.add_row({done ? "Written" : "Would write", pages_text(plan)});
    }
    table.add_row({done ? "Copy" : "Would copy to", backup.value_or("")});
    if (done) {
        table.add_row({"Read back", Cell("as it should be", Style::kGood)});
    }
    output.table(table);
}

std::string question(const FlashChange& change, const std::optional<std::string>& backup) {
    const FlashPlan& plan = change.plan;
    std::string text = fmt::format(
        "Card {}\nregion {}: erase {}", change.card->name(), plan.region->name, sectors_text(plan));
    if (const std::vector<std::string> lost = regions_lost(change); !lost.empty()) {
        text += fmt::format(" (this also erases part of {})", joined(lost));
    }
    if (!plan.pages.empty()) {
        text += fmt::format(", write {}", pages_text(plan));
    }
    return text + "\n" + (backup ? "copy before: " + *backup : "no copy is made before");
}

// A change must not leave old bytes between those that it writes.
void check_plan(const FlashChange& change) {
    const FlashLayout& layout = change.card->layout();
    if (change.plan.sectors.empty()) {
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format("{}: the flash's sectors are not known", change.card->location()));
    }
    if (!change.plan.erased.holds(change.plan.written()) ||
        change.plan.touched().end > layout.size) {
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format(
                "{}: with sectors of {} KiB the library does not erase all that is to be written",
                change.card->location(), layout.sector_size() / 1024));
    }
}

std::string hint(const std::optional<std::string>& backup) {
    return backup ? fmt::format("; what was there is in {}", *backup) : "";
}

// The flash must contain the bytes that the library sent and the content of the change, no others.
void verify(const FlashChange& change, const WriteWatch& watch, const std::string& what) {
    const Range range = change.plan.erased;
    const std::vector<std::uint8_t> now = change.card->read(range, "Verifying");
    std::vector<std::uint8_t> wanted(watch.expected().begin(), watch.expected().end());
    if (!change.content.empty()) {
        std::ranges::copy(
            change.content, wanted.begin() + (change.plan.written().begin - range.begin));
    }
    const auto difference = std::ranges::mismatch(now, wanted).in1;
    if (difference != now.end()) {
        throw Failure(
            ExitCode::kVerification,
            fmt::format(
                "{}: verification failed at {:#x}", what,
                range.begin + static_cast<std::uint32_t>(difference - now.begin())));
    }
}

void carry_out(const FlashChange& change, const std::optional<std::string>& backup) {
    const FlashCard& card = *change.card;
    const std::string what = card.location() + ": " + change.doing;
    card.open_window();
    const SignalsHeld held;
    WriteWatch watch(change.plan);
    const std::int32_t status = call_library(change.carry_out);
    try {
        check_flash(watch.saw_mismatch() ? KX_FLASH_MISMATCH : status, what);
        verify(change, watch, what);
    } catch (const Failure& failure) {
        throw Failure(failure.code(), failure.what() + hint(backup));
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

FlashCard card_to_change(const std::string& command, const Arguments& arguments) {
    return FlashCard(arguments.get("LOCATION"), arguments.has("--dry-run") ? "" : command);
}

ExitCode run_change(
    const std::string& command, const FlashChange& change, const Arguments& arguments,
    Output& output) {
    check_plan(change);
    const std::optional<std::string> backup = backup_name(change, arguments);
    const bool dry = arguments.has("--dry-run");
    if (!dry) {
        Confirmation(arguments.has("--yes"), command).ask(question(change, backup));
        if (backup) {
            const std::string label = fmt::format("Copying {}", change.plan.region->name);
            write_new_file(*backup, change.card->read(change.plan.touched(), label));
        }
        carry_out(change, backup);
    }
    report(change, backup, !dry, output);
    return ExitCode::kDone;
}

}  // namespace kx::ctl
