// The record of a flash change: a TOML file in the change's directory of the journal.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "flash/layout.hpp"

namespace kx::ctl {

struct FlashRecord {
    unsigned number = 0;
    std::string command = {};  // "flash write-boot"
    std::string started = {};  // "2026-01-31T12:00:00Z"
    std::string user = {};
    std::string kxctl_version = {};
    std::string library_version = {};
    std::string location = {};  // with the PCI domain
    std::string serial = {};    // empty when it was unknown
    std::string chip = {};
    unsigned device_id = 0;
    std::string region = {};
    Range range = {};               // the sectors
    std::uint32_t sector_size = 0;  // bytes
    std::uint32_t first_page = 0;   // the address of the page that is written last
    std::string old_digest = {};    // SHA-256 of the sectors
    std::string new_digest = {};
    std::string rest_digest = {};  // of what is beside them; empty in old records
};

[[nodiscard]] std::string record_text(const FlashRecord& record);

// Throws std::runtime_error, whose text says what is wrong.
[[nodiscard]] FlashRecord parse_record(std::string_view text);

}  // namespace kx::ctl
