// What a change of a flash shows the user: its plan, its question and its result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "flash/change.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl {

// The content of the sectors before and after the change.
struct ChangeContents {
    std::vector<std::uint8_t> whole;  // everything that may change, as it is
    std::vector<std::uint8_t> old_bytes;
    std::vector<std::uint8_t> new_bytes;

    [[nodiscard]] bool differ() const { return old_bytes != new_bytes; }
};

// The first rows of every answer about a flash: the card and its interfaces.
[[nodiscard]] Table card_table(const FlashCard& card);

// The change, before the user agrees to it. backup: the file for a copy, if there is one.
[[nodiscard]] std::string change_question(
    const FlashChange& change, const ChangeContents& contents,
    const std::optional<std::string>& backup);

// Print a change that was made, or with `dry` one that would be made.
void report_change(
    const FlashChange& change, const ChangeContents& contents,
    const std::optional<std::string>& backup, bool dry, Output& output);

// Print that the flash has the content already: it is neither erased nor written.
void report_no_change(
    const FlashChange& change, const ChangeContents& contents, bool dry, Output& output);

}  // namespace kx::ctl
