// A change of an adapter's flash, from the question to the read-back: the common steps of flash
// write-boot, erase-boot, config-default, config-erase and config-write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "cli/command.hpp"
#include "flash/card.hpp"
#include "flash/layout.hpp"

namespace kx::ctl {

class BootImage;

struct FlashChange {
    const FlashCard* card;
    FlashPlan plan;
    const char* doing;                           // "writing the boot image"
    std::span<const std::uint8_t> content = {};  // the first bytes of the written pages
    const BootImage* image = nullptr;            // that is written
};

// The steps are: read what is there; show the plan (--dry-run ends here); ask (unless --yes); save
// a copy of everything that may change (unless --no-backup); put the change into the journal; make
// it; read back. Nothing more happens when the flash contains the new content already. Throws
// Failure. Signals that would end the process wait from the journal to the read-back.
ExitCode run_change(
    const std::string& command, const FlashChange& change, const Arguments& arguments,
    Output& output);

// Call it first, before the adapter is read: it refuses wrong options, and a missing terminal when
// it must ask.
void check_change_options(const std::string& command, const Arguments& arguments);

// How many changes that are done --keep asks for. Throws Failure.
[[nodiscard]] std::size_t kept_changes(const Arguments& arguments);

// The adapter at LOCATION. From now on no other kxctl works on its flash; for a plan (--dry-run)
// others may read it.
[[nodiscard]] FlashCard card_to_change(const std::string& command, const Arguments& arguments);

}  // namespace kx::ctl
