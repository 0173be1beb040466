// What the library does to a flash while it erases and writes, seen from outside: how far it is,
// and which bytes it sent. The library's functions call one another by their exported names, so a
// program may stand in front of any of them; kxctl stands in front of those that write a page and
// those that wait for the flash.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "flash/layout.hpp"
#include "output/progress.hpp"

namespace kx::ctl {

// One at a time, around one call of the library.
class WriteWatch {
public:
    explicit WriteWatch(const FlashPlan& plan);
    ~WriteWatch();
    WriteWatch(const WriteWatch&) = delete;
    WriteWatch& operator=(const WriteWatch&) = delete;

    // What the sectors that the plan erases must hold now: what was sent, and nothing else.
    [[nodiscard]] std::span<const std::uint8_t> expected() const { return expected_; }
    // A page did not read back.
    [[nodiscard]] bool saw_mismatch() const { return mismatch_; }

    // What happened, as the functions in front of the library's tell it.
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
