// A change of an adapter's flash, from the question to the read-back: what flash write-boot,
// erase-boot, config-default, config-erase and config-write have in common.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "cli/command.hpp"
#include "flash/card.hpp"
#include "flash/layout.hpp"

namespace kx::ctl {

struct FlashChange {
    const FlashCard* card;
    FlashPlan plan;
    const char* doing;                           // "writing the boot image"
    std::function<std::int32_t()> carry_out;     // the library's function
    std::span<const std::uint8_t> content = {};  // what the written pages must begin with
};

// The order is: tell the plan (--dry-run ends here), ask (unless --yes), save a copy of all that
// may change (unless --no-backup) and flush it to disk, carry out, read back. Throws Failure.
// Signals that would end the process wait from the first erase to the read-back.
ExitCode run_change(
    const std::string& command, const FlashChange& change, const Arguments& arguments,
    Output& output);

// To be called first, before the adapter is looked at: wrong options, and nobody to ask.
void check_change_options(const std::string& command, const Arguments& arguments);

// The adapter at LOCATION, on whose flash no other kxctl works from now on; one that is only
// planned for (--dry-run) may be read by others.
[[nodiscard]] FlashCard card_to_change(const std::string& command, const Arguments& arguments);

}  // namespace kx::ctl
