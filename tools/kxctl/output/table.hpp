// Tables for people: aligned columns, two blanks between them, no blank at a line's end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

enum class Align : std::uint8_t { kLeft, kRight };
enum class Style : std::uint8_t { kPlain, kGood, kBad };

// Whether a column is left out when none of its cells has a text.
enum class WhenEmpty : std::uint8_t { kShown, kLeftOut };

struct Column {
    std::string title;
    Align align = Align::kLeft;
    WhenEmpty when_empty = WhenEmpty::kShown;
};

// The text of a cell may come directly from a driver or a file; an empty cell is shown as "-".
struct Cell {
    Cell(std::string_view content, Style content_style = Style::kPlain)
        : text(content), style(content_style) {}
    Cell(const char* content) : Cell(std::string_view(content)) {}
    Cell(const std::string& content) : Cell(std::string_view(content)) {}

    std::string text;
    Style style;
};

class Table {
public:
    static constexpr std::size_t kNoLimit = 0;

    // A table has no heading when no column has a title.
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // A cell for each column.
    void add_row(std::vector<Cell> cells);

    // width: of the terminal, which the lines fit if possible. Texts that are cut end in "…"; the
    // first column and columns of numbers are not cut, nor tables without a heading, whose texts
    // continue in the next line.
    [[nodiscard]] std::string text(bool colour, std::size_t width = kNoLimit) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

}  // namespace kx::ctl
