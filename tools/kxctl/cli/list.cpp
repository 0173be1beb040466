#include "cli/list.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "failure/failure.hpp"
#include "output/natural_order.hpp"
#include "output/standard_streams.hpp"

namespace kx::ctl {
namespace {

constexpr const char* kColumns = "--columns";
constexpr const char* kSort = "--sort";

// Titles that are other words than the keys in JSON.
struct Title {
    std::string_view title;
    const char* key;
};

constexpr Title kTitles[] = {
    {"ACCESS", "writable"},     {"BIOS", "bios_version"},  {"CHIP", "chip_type"},
    {"COUNTER", "name"},        {"DEVICE", "device_id"},   {"IPV4", "ipv4_address"},
    {"LENGTH", "length_bytes"}, {"LINK", "link_detected"}, {"OFFLOAD", "offload_device"},
    {"OFFSET", "offset_bytes"}, {"PARAMETER", "name"},     {"PER SECOND", "rate_per_second"},
    {"PORT", "instance"},       {"PORTS", "port_count"},
};

std::size_t place_of(const std::vector<Column>& columns, const std::string& name) {
    const auto found = std::ranges::find(columns, name, column_name);
    if (found == columns.end()) {  // the parser knows it, but not every answer has it
        refuse_usage(fmt::format("This answer has no column {}", name));
    }
    return static_cast<std::size_t>(found - columns.begin());
}

std::optional<std::size_t> sorted_by(
    const Arguments& arguments, const std::vector<Column>& columns, Order order) {
    if (arguments.has(kSort)) {
        return place_of(columns, arguments.get(kSort));
    }
    return order == Order::kFirstColumn ? std::optional<std::size_t>(0) : std::nullopt;
}

// The places of the columns in a text such as "location,chip", or of all columns.
std::vector<std::size_t> places_of(const std::vector<Column>& columns, const std::string& names) {
    std::vector<std::size_t> places(names.empty() ? columns.size() : 0);
    std::iota(places.begin(), places.end(), std::size_t{0});
    for (std::string_view rest = names; !rest.empty();) {
        const std::size_t end = std::min(rest.find(','), rest.size());
        places.push_back(place_of(columns, std::string(rest.substr(0, end))));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return places;
}

}  // namespace

std::string column_name(const Column& column) {
    const auto* const other = std::ranges::find(kTitles, column.title, &Title::title);
    std::string name = other == std::end(kTitles) ? column.title : other->key;
    std::ranges::transform(name, name.begin(), [](unsigned char letter) {
        return letter == ' ' ? '_' : static_cast<char>(std::tolower(letter));
    });
    return name;
}

void add_list_options(Command& command) {
    std::vector<std::string> names;
    std::ranges::transform(command.columns(), std::back_inserter(names), column_name);
    if (names.empty()) {
        return;
    }
    command.arguments.reserve(command.arguments.size() + 2);
    command.arguments.push_back(
        {.name = kColumns,
         .help = "Show only these columns of the table, in this order, such as a,b,c",
         .value = "LIST",
         .choices = names,
         .is_list = true});
    command.arguments.push_back(
        {.name = kSort,
         .help = std::string_view(command.verb) == "list"
                     ? "Sort by this column (default: the first one)"
                     : "Sort by this column (default: in the order of the host)",
         .value = "COLUMN",
         .choices = std::move(names)});
}

List::List(
    const Arguments& arguments, const Output& output, const std::vector<Column>& columns,
    Order order)
    : columns_(columns),
      shown_(places_of(columns, arguments.get(kColumns))),
      chosen_(arguments.has(kColumns)),
      order_(sorted_by(arguments, columns, order)) {
    if (output.wants_json() && chosen_) {
        refuse_usage("--columns is for tables; --json prints everything");
    }
}

void List::add(std::vector<Cell> cells, Json value) {
    if (cells.size() != columns_.size()) {
        throw std::logic_error("a row of a list needs a cell for each column");
    }
    rows_.push_back({std::move(cells), std::move(value)});
}

// Rows whose value is missing are last.
std::vector<const List::Row*> List::sorted() const {
    std::vector<const Row*> rows;
    std::ranges::transform(rows_, std::back_inserter(rows), [](const Row& row) { return &row; });
    if (!order_) {
        return rows;
    }
    std::ranges::stable_sort(rows, [place = *order_](const Row* left, const Row* right) {
        const std::string& first = left->cells[place].text;
        const std::string& second = right->cells[place].text;
        if (first.empty() || second.empty()) {
            return !first.empty() && second.empty();
        }
        return std::is_lt(natural_order(first, second));
    });
    return rows;
}

bool List::is_shown(std::size_t place) const {
    return columns_[place].when_empty == WhenEmpty::kShown ||
           std::ranges::any_of(
               rows_, [place](const Row& row) { return !row.cells[place].text.empty(); });
}

Table List::table() const {
    std::vector<std::size_t> places = shown_;
    if (!chosen_) {
        std::erase_if(places, [this](std::size_t place) { return !is_shown(place); });
    }
    std::vector<Column> columns;
    columns.reserve(places.size());
    for (const std::size_t place : places) {
        columns.push_back(columns_[place]);
    }
    Table table(columns);
    for (const Row* row : sorted()) {
        std::vector<Cell> cells;
        cells.reserve(places.size());
        for (const std::size_t place : places) {
            cells.push_back(row->cells[place]);
        }
        table.add_row(std::move(cells));
    }
    return table;
}

void List::print(Output& output, std::string_view when_empty) const {
    if (rows_.empty()) {
        complain(when_empty);
    } else {
        output.table(table());
    }
}

Json List::json() const {
    Json all = Json::array();
    for (const Row* row : sorted()) {
        all.push_back(row->value);
    }
    return all;
}

}  // namespace kx::ctl
