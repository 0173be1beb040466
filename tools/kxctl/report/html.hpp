// Pieces of an HTML page, and the values of answers in them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "output/json.hpp"

namespace kx::ctl::page {

// A text between tags or in an attribute, escaped so that names and texts of drivers cannot become
// markup.
[[nodiscard]] std::string html_text(std::string_view text);

// One value of an answer as text; empty when it is missing.
[[nodiscard]] std::string text_of(const Json& object, const char* key);
[[nodiscard]] std::string value_text(const Json& value);
// 0 when it is missing, not a number, or negative.
[[nodiscard]] std::uint64_t number_of(const Json& object, const char* key);
// An empty list when it is missing.
[[nodiscard]] const Json& list_in(const Json& answer, const char* key);

// Whether an answer is {"failure": text}, and the paragraph with that text.
[[nodiscard]] bool failed(const Json& answer);
[[nodiscard]] std::string failure_line(const Json& answer);

// A column: its title, and the class of its cells in the style sheet, such as "n" for numbers.
struct Column {
    const char* title;
    const char* style = "";
};

// The content of a cell: a text, optionally with its own style, or markup. An empty cell is shown
// as a dash.
class PageCell {
public:
    PageCell(const std::string& text, const char* style = "");
    [[nodiscard]] static PageCell of_markup(std::string markup);

    [[nodiscard]] const std::string& markup() const { return markup_; }
    [[nodiscard]] const char* style() const { return style_; }

private:
    std::string markup_;
    const char* style_;
};

// A table. On a narrow screen its rows are stacked, each cell after the title of its column, unless
// the table is narrow.
class PageTable {
public:
    enum class Width : std::uint8_t { kWide, kNarrow };

    explicit PageTable(std::vector<Column> columns, Width width = Width::kWide)
        : columns_(std::move(columns)), width_(width) {}

    // As many cells as there are columns.
    void add_row(const std::vector<PageCell>& cells);
    [[nodiscard]] bool empty() const { return rows_.empty(); }
    [[nodiscard]] std::string html() const;

private:
    std::vector<Column> columns_;
    std::string rows_;
    Width width_;
};

// A title and its text, in a list.
[[nodiscard]] std::string fact(const char* title, const std::string& text);

}  // namespace kx::ctl::page
