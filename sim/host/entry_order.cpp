#include "host/entry_order.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace kxsim {

void EntryOrder::add(std::string_view path) {
    state::Order& order = *record_;
    const std::size_t length = order.lines().size();
    if (path.size() + 1 > state::kMostOrder - length) {
        throw std::invalid_argument("the host has too many files");
    }
    std::memcpy(order.text + length, path.data(), path.size());
    order.text[length + path.size()] = '\n';
    order.length.store(length + path.size() + 1, std::memory_order_release);
}

void EntryOrder::keep_only(const std::function<bool(std::string_view path)>& wanted) {
    std::string kept;
    for (std::string_view lines = record_->lines(); !lines.empty();) {
        const std::string_view path = state::next_line(lines);
        if (wanted(path)) {
            kept.append(path) += '\n';
        }
    }
    std::memcpy(record_->text, kept.data(), kept.size());
    record_->length.store(kept.size(), std::memory_order_release);
}

void EntryOrder::remove(std::string_view path) {
    const std::string below = std::string(path) + "/";
    keep_only([&](std::string_view each) { return each != path && !each.starts_with(below); });
}

void EntryOrder::set(std::string_view directory, const std::vector<std::string>& names) {
    keep_only([&](std::string_view each) { return state::name_in(directory, each).empty(); });
    std::vector<std::string> in_order = names;
    if (directory == state::kNewestFirst) {
        std::reverse(in_order.begin(), in_order.end());
    }
    for (const std::string& name : in_order) {
        add(std::string(directory) + "/" + name);
    }
}

}  // namespace kxsim
