#include "failure/unread.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace kx::ctl {
namespace {

constexpr char kNoMemory[] = "There was no memory for a part of the answer";

struct Notes {
    std::vector<std::string> objects;
    std::vector<std::string> reasons;
    bool lost = false;  // there was no memory for a note
};

Notes& notes() {
    static Notes all;
    return all;
}

void add_reason(std::string reason) {
    std::vector<std::string>& reasons = notes().reasons;
    if (std::ranges::find(reasons, reason) == reasons.end()) {
        reasons.push_back(std::move(reason));
    }
}

void add_lost() {
    if (std::exchange(notes().lost, false)) {
        add_reason(kNoMemory);
    }
}

}  // namespace

void note_unread(std::string_view object, int reason) noexcept {
    try {
        add_reason(fmt::format("{}: {}", object, std::strerror(reason)));
        notes().objects.emplace_back(object);
    } catch (const std::exception&) {
        note_no_memory();
    }
}

void note_missing(std::string_view what) noexcept {
    try {
        add_reason(std::string(what));
    } catch (const std::exception&) {
        note_no_memory();
    }
}

void note_no_memory() noexcept { notes().lost = true; }

bool is_unread(std::string_view ending) {
    return std::ranges::any_of(
        notes().objects, [&](const std::string& object) { return object.ends_with(ending); });
}

void forget_unread(const std::function<bool(std::string_view object)>& is_of_others) {
    std::erase_if(notes().objects, is_of_others);
    std::erase_if(notes().reasons, is_of_others);  // they begin with the object
}

const std::vector<std::string>& unread_reasons() {
    add_lost();
    return notes().reasons;
}

std::vector<std::string> take_unread_reasons() {
    add_lost();
    notes().objects.clear();
    return std::exchange(notes().reasons, {});
}

}  // namespace kx::ctl
