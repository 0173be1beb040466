// Pieces of an HTML page, and the values of answers that go into them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "output/json.hpp"

namespace kx::ctl::page {

// A text between tags or in an attribute: what names and texts of drivers hold cannot become
// markup.
[[nodiscard]] std::string html_text(std::string_view text);

// One value of an answer as people read it; empty when it is not there.
[[nodiscard]] std::string text_of(const Json& object, const char* key);
[[nodiscard]] std::string value_text(const Json& value);
// 0 when it is not there, no number, or negative.
[[nodiscard]] std::uint64_t number_of(const Json& object, const char* key);
// An empty list when it is not there.
[[nodiscard]] const Json& list_in(const Json& answer, const char* key);

// Whether an answer is {"failure": text}, and the paragraph that tells it.
[[nodiscard]] bool failed(const Json& answer);
[[nodiscard]] std::string failure_line(const Json& answer);

// A column: its title, and the class of the style sheet that its cells have, such as "n" for
// numbers.
struct Column {
    const char* title;
    const char* style = "";
};

// What stands in a cell: a text, in a style of its own if it has one, or markup. What is empty is
// shown as a dash.
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

// A table. Where there is little room its rows are stacked, each cell behind its column's title,
// unless it is narrow by itself.
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

// A title and its text, in a list of them.
[[nodiscard]] std::string fact(const char* title, const std::string& text);

}  // namespace kx::ctl::page
