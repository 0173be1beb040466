#include "output/table.hpp"

#include <algorithm>
#include <stdexcept>

#include "output/printable.hpp"

namespace kx::ctl {
namespace {

constexpr std::string_view kGap = "  ";
constexpr std::string_view kBold = "\033[1m";
constexpr std::string_view kGreen = "\033[32m";
constexpr std::string_view kRed = "\033[31m";
constexpr std::string_view kReset = "\033[0m";

std::string_view colour_of(Style style) {
    switch (style) {
        case Style::kGood:
            return kGreen;
        case Style::kBad:
            return kRed;
        case Style::kPlain:
            break;
    }
    return "";
}

// Appends the cells of one line.
class Line {
public:
    explicit Line(std::string& out) : out_(out) {}

    // Blanks are written only when something follows them.
    void add(std::string_view text, std::size_t width, Align align, std::string_view colour) {
        const std::size_t blanks = width - std::min(width, display_width(text));
        pending_ += align == Align::kRight ? blanks : 0;
        out_.append(pending_, ' ');
        out_ += colour;
        out_ += text;
        out_ += colour.empty() ? "" : kReset;
        pending_ = kGap.size() + (align == Align::kLeft ? blanks : 0);
    }

    void end() { out_ += '\n'; }

private:
    std::string& out_;
    std::size_t pending_ = 0;
};

bool has_heading(const std::vector<Column>& columns) {
    return std::any_of(
        columns.begin(), columns.end(), [](const Column& column) { return !column.title.empty(); });
}

}  // namespace

void Table::add_row(std::vector<Cell> cells) {
    if (cells.size() != columns_.size()) {
        throw std::logic_error("a table row needs a cell for each column");
    }
    for (Cell& cell : cells) {
        cell.text = cell.text.empty() ? "-" : printable(cell.text);
    }
    rows_.push_back(std::move(cells));
}

std::string Table::text(bool colour) const {
    std::vector<std::size_t> widths;
    for (std::size_t k = 0; k < columns_.size(); ++k) {
        std::size_t width = display_width(columns_[k].title);
        for (const std::vector<Cell>& row : rows_) {
            width = std::max(width, display_width(row[k].text));
        }
        widths.push_back(width);
    }
    std::string out;
    if (has_heading(columns_)) {
        Line line(out);
        for (std::size_t k = 0; k < columns_.size(); ++k) {
            line.add(columns_[k].title, widths[k], columns_[k].align, colour ? kBold : "");
        }
        line.end();
    }
    for (const std::vector<Cell>& row : rows_) {
        Line line(out);
        for (std::size_t k = 0; k < columns_.size(); ++k) {
            const std::string_view code = colour ? colour_of(row[k].style) : "";
            line.add(row[k].text, widths[k], columns_[k].align, code);
        }
        line.end();
    }
    return out;
}

}  // namespace kx::ctl
