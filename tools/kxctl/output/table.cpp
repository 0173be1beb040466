// The only file that uses the library for tables. It aligns and cuts; what is in a cell is kxctl's.
#include "output/table.hpp"

#include <dlfcn.h>
#include <fmt/core.h>
#include <libsmartcols/libsmartcols.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

#include "failure/failure.hpp"
#include "output/printable.hpp"

namespace kx::ctl {
namespace {

constexpr const char* kBold = "\033[1m";
constexpr const char* kColours[] = {nullptr, "\033[32m", "\033[31m"};  // by Style

// The library is loaded with the first table: it takes a tenth of the time of a command without
// one.
void* table_library() {
    static void* const library = dlopen("libsmartcols.so.1", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw Failure(ExitCode::kFailed, fmt::format("Cannot draw a table: {}", dlerror()));
    }
    return library;
}

template <class Function>
Function* function_of_library(const char* name) {
    auto* const function = reinterpret_cast<Function*>(dlsym(table_library(), name));
    if (function == nullptr) {
        throw Failure(ExitCode::kFailed, fmt::format("Cannot draw a table: {}", dlerror()));
    }
    return function;
}

// One of its functions, looked up once.
#define KX_SCOLS(name)                                                                          \
    ([] {                                                                                       \
        static auto* const found = function_of_library<decltype(scols_##name)>("scols_" #name); \
        return found;                                                                           \
    }())

// The library's functions fail only without memory.
void need_memory(int result) {
    if (result != 0) {
        throw std::bad_alloc();
    }
}

template <class Object>
Object* need_memory(Object* object) {
    need_memory(object == nullptr ? -1 : 0);
    return object;
}

bool has_heading(const std::vector<Column>& columns) {
    return std::ranges::any_of(columns, [](const Column& column) { return !column.title.empty(); });
}

// A table of the library, while a Table is printed.
class Drawing {
public:
    Drawing(const std::vector<Column>& columns, bool colour, std::size_t width)
        : colour_(colour), heading_(has_heading(columns)) {
        need_memory(KX_SCOLS(table_set_column_separator)(table_.get(), "  "));
        need_memory(KX_SCOLS(table_enable_noencoding)(table_.get(), 1));
        need_memory(KX_SCOLS(table_enable_noheadings)(table_.get(), heading_ ? 0 : 1));
        need_memory(KX_SCOLS(table_enable_colors)(table_.get(), colour ? 1 : 0));
        const bool limited = width != Table::kNoLimit;
        need_memory(KX_SCOLS(table_set_termforce)(
            table_.get(), limited ? SCOLS_TERMFORCE_ALWAYS : SCOLS_TERMFORCE_NEVER));
        need_memory(KX_SCOLS(table_set_termwidth)(table_.get(), width));
        for (const Column& column : columns) {
            add_column(column);
        }
    }

    void add_line(const std::vector<Cell>& cells) {
        libscols_line* const line = need_memory(KX_SCOLS(table_new_line)(table_.get(), nullptr));
        for (std::size_t k = 0; k < cells.size(); ++k) {
            need_memory(KX_SCOLS(line_set_data)(line, k, cells[k].text.c_str()));
            const char* const colour = kColours[static_cast<std::size_t>(cells[k].style)];
            need_memory(KX_SCOLS(cell_set_color)(
                KX_SCOLS(line_get_cell)(line, k), colour_ ? colour : nullptr));
        }
        lines_.push_back(line);
    }

    // Cut the texts that are wider than the library made their column.
    void shorten() {
        static_cast<void>(text());
        for (std::size_t k = 0; k < columns_.size(); ++k) {
            if (KX_SCOLS(column_is_trunc)(columns_[k]) != 0) {
                shorten(k, KX_SCOLS(column_get_width)(columns_[k]));
            }
        }
    }

    [[nodiscard]] std::string text() {
        if (lines_.empty() && !heading_) {
            return "";
        }
        // Without a line the library prints nothing.
        const bool only_heading = lines_.empty();
        if (only_heading) {
            need_memory(KX_SCOLS(table_new_line)(table_.get(), nullptr));
        }
        char* printed = nullptr;
        need_memory(KX_SCOLS(print_table_to_string)(table_.get(), &printed));
        const std::unique_ptr<char, decltype(&std::free)> owner(printed, std::free);
        // The library does not tell when it cannot complete the text.
        const std::string_view all(need_memory(printed));
        need_memory(all.empty() ? -1 : 0);
        return std::string(only_heading ? all.substr(0, all.find('\n')) : all) + "\n";
    }

private:
    // Numbers are shown whole, and so is what names the row.
    int flags_of(const Column& column) const {
        if (column.align == Align::kRight) {
            return SCOLS_FL_RIGHT;
        }
        const int others = heading_ ? SCOLS_FL_TRUNC : SCOLS_FL_WRAP;
        return columns_.empty() ? 0 : others;
    }

    void add_column(const Column& column) {
        const std::string title = printable(column.title);
        libscols_column* const added = need_memory(
            KX_SCOLS(table_new_column)(table_.get(), title.c_str(), 0, flags_of(column)));
        need_memory(KX_SCOLS(cell_set_color)(
            KX_SCOLS(column_get_header)(added), colour_ ? kBold : nullptr));
        columns_.push_back(added);
    }

    void shorten(std::size_t place, std::size_t width) {
        for (libscols_line* const line : lines_) {
            const std::string text = KX_SCOLS(cell_get_data)(KX_SCOLS(line_get_cell)(line, place));
            need_memory(KX_SCOLS(line_set_data)(line, place, shortened(text, width).c_str()));
        }
    }

    struct Release {
        void operator()(libscols_table* table) const { KX_SCOLS(unref_table)(table); }
    };
    std::unique_ptr<libscols_table, Release> table_{need_memory(KX_SCOLS(new_table)())};
    std::vector<libscols_column*> columns_;  // the table's
    std::vector<libscols_line*> lines_;      // the table's
    bool colour_;
    bool heading_;
};

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

std::string Table::text(bool colour, std::size_t width) const {
    const Utf8Texts utf8;
    Drawing drawing(columns_, colour, width);
    for (const std::vector<Cell>& row : rows_) {
        drawing.add_line(row);
    }
    if (width != kNoLimit) {
        drawing.shorten();
    }
    return drawing.text();
}

}  // namespace kx::ctl
