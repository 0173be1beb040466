// Tables for people: aligned columns, two blanks between them, no blank at a line's end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

enum class Align : std::uint8_t { kLeft, kRight };
enum class Style : std::uint8_t { kPlain, kGood, kBad };

struct Column {
    std::string title;
    Align align = Align::kLeft;
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
    // A table has no heading when no column has a title.
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // A cell for each column.
    void add_row(std::vector<Cell> cells);

    [[nodiscard]] std::string text(bool colour) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

}  // namespace kx::ctl
