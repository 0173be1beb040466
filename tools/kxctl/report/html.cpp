#include "report/html.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>

#include "output/printable.hpp"

namespace kx::ctl::page {
namespace {

constexpr const char* kNothing = "&#8211;";

// The replacement for a character that would be markup.
struct Reference {
    char byte;
    const char* text;
};

constexpr Reference kReferences[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};

std::string style_attribute(const char* style) {
    return *style == '\0' ? "" : fmt::format(" class=\"{}\"", style);
}

}  // namespace

std::string html_text(std::string_view text) {
    std::string result;
    for (const char byte : printable(text)) {
        const auto* const found = std::ranges::find(kReferences, byte, &Reference::byte);
        if (found == std::end(kReferences)) {
            result += byte;
        } else {
            result += found->text;
        }
    }
    return result;
}

std::string value_text(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    return value.is_null() ? "" : value.dump();
}

std::string text_of(const Json& object, const char* key) {
    return object.is_object() && object.contains(key) ? value_text(object.at(key)) : "";
}

std::uint64_t number_of(const Json& object, const char* key) {
    const bool has = object.is_object() && object.contains(key);
    return has && object.at(key).is_number_unsigned() ? object.at(key).get<std::uint64_t>()
           : has && object.at(key).is_number_integer()
               ? static_cast<std::uint64_t>(
                     std::max<std::int64_t>(0, object.at(key).get<std::int64_t>()))
               : 0;
}

bool failed(const Json& answer) { return answer.is_object() && answer.contains("failure"); }

const Json& list_in(const Json& answer, const char* key) {
    static const Json none = Json::array();
    const bool has = answer.is_object() && answer.contains(key) && answer.at(key).is_array();
    return has ? answer.at(key) : none;
}

std::string failure_line(const Json& answer) {
    return fmt::format("<p class=\"failure\">{}</p>\n", html_text(text_of(answer, "failure")));
}

PageCell::PageCell(const std::string& text, const char* style)
    : markup_(text.empty() ? kNothing : html_text(text)), style_(style) {}

PageCell PageCell::of_markup(std::string markup) {
    PageCell cell("");
    cell.markup_ = std::move(markup);
    return cell;
}

void PageTable::add_row(const std::vector<PageCell>& cells) {
    rows_ += "<tr>";
    for (std::size_t k = 0; k < std::min(cells.size(), columns_.size()); ++k) {
        rows_ += fmt::format(
            "<td{} data-title=\"{}\">{}</td>",
            style_attribute(*cells[k].style() == '\0' ? columns_[k].style : cells[k].style()),
            columns_[k].title, cells[k].markup());
    }
    rows_ += "</tr>\n";
}

std::string PageTable::html() const {
    std::string titles;
    for (const Column& column : columns_) {
        titles +=
            fmt::format("<th scope=\"col\"{}>{}</th>", style_attribute(column.style), column.title);
    }
    return fmt::format(
        "<table class=\"{}\">\n<thead><tr>{}</tr></thead>\n<tbody>\n{}</tbody>\n</table>\n",
        width_ == Width::kWide ? "wide" : "narrow", titles, rows_);
}

std::string fact(const char* title, const std::string& text) {
    return fmt::format(
        "<div><dt>{}</dt><dd>{}</dd></div>\n", title, text.empty() ? kNothing : html_text(text));
}

}  // namespace kx::ctl::page
