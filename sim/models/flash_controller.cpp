// Trigger: loads and stores of the two registers. Effect: a store to the operation register moves 1
// to 4 bytes between the data register and the flash, least significant byte first; the register is
// busy for a while, and then the data register contains the bytes that were read. Stores while it
// is busy are lost. On Q4 and Q5 a store of 0 ends the command and releases the lock; on Q3 it is
// an ordinary transfer that reads one byte. What can be made to fail: a transfer that never ends,
// and the power (see state::FlashFaults).
#include "models/flash_controller.hpp"

namespace kxsim::models {
namespace {

constexpr std::uint32_t kWrite = 1U << 0;
constexpr std::uint32_t kCount = 3U << 1;  // bytes - 1
constexpr std::uint32_t kContinue = 1U << 3;
constexpr std::uint32_t kLock = 1U << 4;
constexpr std::uint32_t kBusy = 1U << 31;

constexpr std::uint8_t kIdle = 0x00;  // the byte that is sent while bytes are read

}  // namespace

bool FlashController::busy() const { return latches_.stuck != 0 || latches_.busy_left > 0; }

std::uint32_t FlashController::read_data() { return latches_.data; }

std::uint32_t FlashController::read_operation() {
    if (!busy()) {
        return latches_.operation;
    }
    if (latches_.stuck == 0 && --latches_.busy_left == 0) {
        latches_.data = latches_.result;
    }
    return latches_.operation | kBusy;
}

void FlashController::write_data(std::uint32_t value) {
    if (!busy()) {
        latches_.data = value;
    }
}

void FlashController::write_operation(std::uint32_t value) {
    if (value == 0 && hardware_.family == state::Family::kQ4) {
        release();
    } else if (!busy()) {
        transfer(value);
    }
}

void FlashController::transfer(std::uint32_t operation) {
    if (++controller_.transfers == hardware_.faults.power_cut_at) {
        hardware_.unpowered = 1;
        return;
    }
    latches_.operation = operation & (kWrite | kCount | kContinue | kLock);
    latches_.locked = (operation & kLock) != 0 ? 1 : 0;
    latches_.selected = 1;
    const std::uint32_t bytes = ((operation & kCount) >> 1) + 1;
    const bool writing = (operation & kWrite) != 0;
    std::uint32_t result = 0;
    for (std::uint32_t i = 0; i < bytes; ++i) {
        const auto out = static_cast<std::uint8_t>(latches_.data >> (8 * i));
        const std::uint32_t in = flash_.exchange(writing ? out : kIdle);
        result |= in << (8 * i);
    }
    latches_.result = writing ? latches_.data : result;
    if ((operation & kContinue) == 0) {
        deselect();
    }
    latches_.busy_left = controller_.busy_polls;
    latches_.stuck = controller_.transfers == hardware_.faults.stuck_busy_at ? 1 : 0;
    if (!busy()) {
        latches_.data = latches_.result;
    }
}

std::uint32_t FlashController::flash_changes() const {
    return hardware_.flash.programs + hardware_.flash.erases;
}

void FlashController::release() {
    deselect();
    latches_.operation = 0;
    latches_.locked = 0;
}

void FlashController::deselect() {
    if (latches_.selected != 0) {
        const std::uint32_t changes = flash_changes();
        flash_.deselect();
        latches_.selected = 0;
        if (flash_changes() != changes) {
            controller_.last_change = controller_.transfers;
        }
    }
}

}  // namespace kxsim::models
