// card stats and port stats: counters once, or repeatedly with their rates.
#include <fmt/core.h>

#include <chrono>
#include <functional>
#include <thread>

#include "cli/list.hpp"
#include "cli/numbers.hpp"
#include "commands/commands.hpp"
#include "library/card_ports.hpp"
#include "library/engine_target.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"
#include "output/live_view.hpp"

namespace kx::ctl {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Reading {
    std::vector<StatEntry> counters;
    Clock::time_point time;
};

// The card or port of the counters.
struct Source {
    Json head;  // names card and port
    bool has_groups;
    std::function<std::vector<StatEntry>()> read;
};

// The change of a counter since the previous reading. Nothing when the drivers had other counters
// then, or started again.
struct Movement {
    Movement(const Reading& now, const Reading* before, std::size_t place) {
        if (before == nullptr || place >= before->counters.size()) {
            return;
        }
        const StatEntry& counter = now.counters[place];
        const StatEntry& old = before->counters[place];
        if (field_text(counter.name) == field_text(old.name) && counter.value >= old.value) {
            change = counter.value - old.value;
            rate = static_cast<double>(*change) / Seconds(now.time - before->time).count();
        }
    }

    std::optional<std::uint64_t> change;
    double rate = 0;  // a second
};

std::vector<Column> columns(bool has_groups, bool watching, bool with_graphs) {
    std::vector<Column> columns;
    if (has_groups) {
        columns.push_back({"GROUP", Align::kRight});
    }
    columns.push_back({"COUNTER"});
    columns.push_back({"VALUE", Align::kRight});
    if (watching) {
        columns.push_back({"CHANGE", Align::kRight});
        columns.push_back({"PER SECOND", Align::kRight});
    }
    if (with_graphs) {
        columns.push_back({"RATE"});
    }
    return columns;
}

// The name of a counter in the history: names may be in several groups.
std::string history_name(const StatEntry& counter) {
    return fmt::format("{} {}", counter.group, field_text(counter.name));
}

// How readings are shown.
struct View {
    View(const Arguments& arguments, const Output& output, bool has_groups, bool watched)
        : watching(watched),
          draws(watched && !output.wants_json() && can_draw()),
          empty(arguments, output, columns(has_groups, watching, draws), Order::kAsRead) {}

    bool watching;  // several readings, with what changed between them
    bool draws;     // a table that replaces the previous one, with graphs
    List empty;     // a list without rows
    RateHistory history = {};
};

void add_movement(
    const Movement& movement, const StatEntry& counter, View& view, std::vector<Cell>& cells,
    Json& entry) {
    entry["change"] = movement.change ? Json(*movement.change) : Json();
    entry["rate_per_second"] = movement.change ? Json(movement.rate) : Json();
    cells.emplace_back(movement.change ? fmt::format("{}", *movement.change) : "");
    cells.emplace_back(movement.change ? fmt::format("{:.1f}", movement.rate) : "");
    if (view.draws) {
        const std::string name = history_name(counter);
        view.history.add(name, movement.change ? std::optional(movement.rate) : std::nullopt);
        cells.emplace_back(view.history.graph(name));
    }
}

List rows_of(const Source& source, const Reading& now, const Reading* before, View& view) {
    List rows = view.empty;
    for (std::size_t k = 0; k < now.counters.size(); ++k) {
        const StatEntry& counter = now.counters[k];
        std::vector<Cell> cells;
        Json entry;
        if (source.has_groups) {
            entry["group"] = counter.group;
            cells.emplace_back(fmt::format("{}", counter.group));
        }
        entry["name"] = field_text(counter.name);
        entry["value"] = std::uint64_t{counter.value};
        cells.emplace_back(field_text(counter.name));
        cells.emplace_back(fmt::format("{}", std::uint64_t{counter.value}));
        if (view.watching) {
            add_movement(Movement(now, before, k), counter, view, cells, entry);
        }
        rows.add(std::move(cells), std::move(entry));
    }
    return rows;
}

Json to_json(
    const Source& source, const Reading& now, const Reading* before, const List& rows,
    bool watching) {
    Json all = source.head;
    if (watching) {
        all["elapsed_seconds"] =
            before == nullptr ? Json() : Json(Seconds(now.time - before->time).count());
    }
    all["counters"] = rows.json();
    return all;
}

Reading take_reading(const Source& source) {
    std::vector<StatEntry> counters = source.read();
    return {std::move(counters), Clock::now()};
}

ExitCode show_once(const Source& source, View& view, Output& output) {
    const Reading now = take_reading(source);
    const List rows = rows_of(source, now, nullptr, view);
    if (output.wants_json()) {
        output.json(to_json(source, now, nullptr, rows, false));
    } else {
        output.text(subject_text(source.head));
        output.table(rows.table());
    }
    return ExitCode::kDone;
}

// Prints each reading: with JSON as one line, otherwise as a table.
void show_reading(
    const Source& source, const Reading& now, const std::optional<Reading>& before, View& view,
    Output& output) {
    const Reading* const old = before ? &*before : nullptr;
    const List rows = rows_of(source, now, old, view);
    if (output.wants_json()) {
        output.json_line(to_json(source, now, old, rows, true));
        return;
    }
    if (view.draws) {
        const std::string text = subject_text(source.head) + output.table_text(rows.table());
        output.text(drawing(text, terminal_height(), old == nullptr));
        return;
    }
    output.text(old == nullptr ? subject_text(source.head) : "\n");
    output.table(rows.table());
}

ExitCode show_again(const Source& source, View& view, const Watch& watch, Output& output) {
    std::optional<Reading> before;
    Clock::time_point next = Clock::now();
    for (std::uint64_t shown = 0; watch.count == 0 || shown < watch.count; ++shown) {
        std::this_thread::sleep_until(next);
        next += watch.interval;
        Reading now = take_reading(source);
        show_reading(source, now, before, view, output);
        if (!output.flush()) {
            break;
        }
        before = std::move(now);
    }
    return ExitCode::kDone;
}

ExitCode show_counters(const Arguments& arguments, const Source& source, Output& output) {
    const std::optional<Watch> watch = watch_option(arguments);
    View view(arguments, output, source.has_groups, watch.has_value());
    return watch ? show_again(source, view, *watch, output) : show_once(source, view, output);
}

// The counters of a Q3 are those of its engine, which the library finds by an interface.
void check_counters_of_engine(const Arguments& arguments, const std::string& location) {
    if (field_text(query_card(location).chip_type) == "Q3") {
        static_cast<void>(EngineTarget(arguments));
    }
}

ExitCode card_stats(const Arguments& arguments, Output& output) {
    const std::string location = card_location(arguments);
    check_counters_of_engine(arguments, location);
    const Source source{.head = card_json(location), .has_groups = true, .read = [&] {
                            return query_card_counters(location);
                        }};
    return show_counters(arguments, source, output);
}

ExitCode port_stats(const Arguments& arguments, Output& output) {
    const PortTarget target(arguments);
    const Source source{
        .head = target.json(), .has_groups = false, .read = [&] { return target.read_counters(); }};
    return show_counters(arguments, source, output);
}

const Argument kWatch{
    .name = "--watch",
    .help = "Read again after each interval (0.01 to 86400 seconds), and show change and rate",
    .value = "SECONDS",
};
const Argument kCount{
    .name = "--count",
    .help = "With --watch: end after this many readings",
    .value = "N",
};
constexpr const char* kAboutCounters =
    "One line for each counter, with the driver's name for it. With --watch: also the change of "
    "each counter since the previous reading and its rate per second; on a terminal the table is "
    "updated in place and shows a graph of the rates; with --json each reading is one line of "
    "JSON.";

std::vector<Command> card_stats_rows() {
    return {
        {
            .noun = "card",
            .verb = "stats",
            .help = "Show the counters of a card's offload engine",
            .about = kAboutCounters,
            .arguments = {kLocation, kWatch, kCount},
            .examples = {"kxctl card stats 03:00.4", "kxctl card stats 03:00.4 --watch 5"},
            .run = card_stats,
            .columns = [] { return columns(true, true, true); },
        },
    };
}

const TablePart kCardStatsRows(110, card_stats_rows);

std::vector<Command> port_stats_rows() {
    return {
        {
            .noun = "port",
            .verb = "stats",
            .help = "Show the counters of a port",
            .about = kAboutCounters,
            .arguments = {kPortOrCard, kPort, kWatch, kCount},
            .examples = {"kxctl port stats 03:00.4 1", "kxctl port stats 03:00.4 1 --watch 2"},
            .run = port_stats,
            .columns = [] { return columns(false, true, true); },
        },
    };
}

const TablePart kPortStatsRows(220, port_stats_rows);

}  // namespace
}  // namespace kx::ctl
