// Lists: the rows of a table, each with its JSON value, in the same order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/command.hpp"
#include "output/json.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl {

// The name of a column for --columns and --sort, which is its key in JSON: "SERIAL NUMBER" is
// serial_number.
[[nodiscard]] std::string column_name(const Column& column);

// How rows are sorted unless the user chose a column.
enum class Order : std::uint8_t { kFirstColumn, kAsRead };

// Give a command that has columns the options --columns and --sort.
void add_list_options(Command& command);

// Rows are sorted by the column that the user chose, otherwise by the first one or not at all.
class List {
public:
    // Create it before anything is read: it throws Failure when the options are wrong.
    List(
        const Arguments& arguments, const Output& output, const std::vector<Column>& columns,
        Order order = Order::kFirstColumn);

    // A cell for each column, and the value of the same record.
    void add(std::vector<Cell> cells, Json value);

    [[nodiscard]] Table table() const;
    // Print the table. Of an empty list, print the sentence on standard error.
    void print(Output& output, std::string_view when_empty) const;
    [[nodiscard]] Json json() const;  // an array

private:
    struct Row {
        std::vector<Cell> cells;
        Json value;
    };

    [[nodiscard]] std::vector<const Row*> sorted() const;
    [[nodiscard]] bool is_shown(std::size_t place) const;

    std::vector<Column> columns_;
    std::vector<std::size_t> shown_;    // the places of the columns, in the order of the table
    bool chosen_;                       // whether the user chose the columns
    std::optional<std::size_t> order_;  // the place of the column by which rows are sorted
    std::vector<Row> rows_;
};

}  // namespace kx::ctl
