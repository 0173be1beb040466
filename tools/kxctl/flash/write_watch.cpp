#include "flash/write_watch.hpp"

#include <dlfcn.h>
#include <kxlinhw/flash.h>

#include <algorithm>
#include <cstdlib>

namespace kx::ctl {
namespace {

constexpr std::uint8_t kErasedByte = 0xFF;

WriteWatch* watch = nullptr;
bool in_page = false;  // this waits for a page, not for a sector

// The library's function that the function of this program replaces.
template <class Function>
Function* next(const char* name) {
    auto* const function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    return function != nullptr ? function : (std::abort(), nullptr);
}

template <class Call>
std::int32_t write_page(
    std::uint32_t address, std::uint32_t n, const std::uint8_t* data, Call call) {
    in_page = true;
    const std::int32_t status = call();
    in_page = false;
    if (watch != nullptr && data != nullptr) {
        watch->wrote_page(address, {data, n}, status);
    }
    return status;
}

std::int32_t tell_wait(std::int32_t status) {
    if (watch != nullptr && !in_page && status == 0) {
        watch->erased_sector();
    }
    return status;
}

std::uint32_t bytes_of(const FlashPlan& plan) {
    std::uint32_t bytes = 0;
    for (const PageRun& run : plan.pages) {
        bytes += run.bytes.size();
    }
    return bytes;
}

std::string label(const char* verb, const FlashPlan& plan) {
    return std::string(verb) + " " + plan.region->name;
}

}  // namespace

WriteWatch::WriteWatch(const FlashPlan& plan)
    : erased_(plan.erased),
      sector_size_(
          plan.erased.size() /
          static_cast<std::uint32_t>(std::max<std::size_t>(1, plan.sectors.size()))),
      expected_(plan.erased.size(), kErasedByte),
      erasing_(label("Erasing", plan), plan.erased.size()),
      writing_(label("Writing", plan), bytes_of(plan)) {
    watch = this;
}

WriteWatch::~WriteWatch() { watch = nullptr; }

void WriteWatch::erased_sector() { erasing_.add(sector_size_); }

// Data of a failed call count as sent too: the flash may contain them.
void WriteWatch::wrote_page(
    std::uint32_t address, std::span<const std::uint8_t> bytes, std::int32_t status) {
    mismatch_ = mismatch_ || status == KX_FLASH_MISMATCH;
    if (status == 0) {
        writing_.add(bytes.size());
    }
    const Range page{address, address + static_cast<std::uint32_t>(bytes.size())};
    if (erased_.holds(page)) {
        std::ranges::copy(bytes, expected_.begin() + (address - erased_.begin));
    }
}

}  // namespace kx::ctl

extern "C" {

std::int32_t q4_write_flash(
    std::uint8_t adapter, std::uint32_t address, std::uint32_t n, const std::uint8_t* data,
    int byte_oriented) {
    static auto* const own = kx::ctl::next<decltype(::q4_write_flash)>("q4_write_flash");
    return kx::ctl::write_page(
        address, n, data, [&] { return own(adapter, address, n, data, byte_oriented); });
}

std::int32_t q3_write_flash(
    std::uint8_t adapter, std::uint32_t address, std::uint32_t n, const std::uint8_t* data) {
    static auto* const own = kx::ctl::next<decltype(::q3_write_flash)>("q3_write_flash");
    return kx::ctl::write_page(address, n, data, [&] { return own(adapter, address, n, data); });
}

std::int32_t q4_flash_wait_op(std::uint8_t adapter, int attempts, int delay_ms) {
    static auto* const own = kx::ctl::next<decltype(::q4_flash_wait_op)>("q4_flash_wait_op");
    return kx::ctl::tell_wait(own(adapter, attempts, delay_ms));
}

std::int32_t q3_flash_wait_op(std::uint8_t adapter, int attempts, int delay_ms) {
    static auto* const own = kx::ctl::next<decltype(::q3_flash_wait_op)>("q3_flash_wait_op");
    return kx::ctl::tell_wait(own(adapter, attempts, delay_ms));
}

}  // extern "C"
