// Observes the library while it erases and writes a flash: its progress and the bytes that it
// sends. The library's functions call each other by their exported names, so a program may replace
// each of them; kxctl replaces the functions that write a page and those that wait for the flash.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "flash/layout.hpp"
#include "output/progress.hpp"

namespace kx::ctl {

// Only one object at a time, around one call of the library.
class WriteWatch {
public:
    explicit WriteWatch(const FlashPlan& plan);
    ~WriteWatch();
    WriteWatch(const WriteWatch&) = delete;
    WriteWatch& operator=(const WriteWatch&) = delete;

    // The required content of the sectors that the plan erases: what was sent, and nothing else.
    [[nodiscard]] std::span<const std::uint8_t> expected() const { return expected_; }
    // A page did not read back.
    [[nodiscard]] bool saw_mismatch() const { return mismatch_; }

    // The events that the replaced functions report.
    void erased_sector();
    void wrote_page(
        std::uint32_t address, std::span<const std::uint8_t> bytes, std::int32_t status);

private:
    Range erased_;
    std::uint32_t sector_size_;
    std::vector<std::uint8_t> expected_;
    bool mismatch_ = false;
    Progress erasing_;
    Progress writing_;
};

}  // namespace kx::ctl
