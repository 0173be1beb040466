// Trigger: the library's register accesses inside a mapped window. Effect: accesses to the flash
// controller's registers reach the controller; all accesses are counted. What can be made to fail:
// the power, by a fault of the flash controller; it stays off until restore_power.
#include "models/register_window.hpp"

#include "models/flash_controller.hpp"

namespace kxsim::models {
namespace {

constexpr std::uint32_t kUnpowered = 0xFFFFFFFF;

struct FlashRegisters {
    std::uint32_t data;
    std::uint32_t operation;
};

constexpr FlashRegisters registers_of(state::Family family) {
    return family == state::Family::kQ3 ? FlashRegisters{0x6D8, 0x6DC}
                                        : FlashRegisters{0x193F8, 0x193FC};
}

}  // namespace

std::uint32_t load_register(
    state::AdapterHardware& hardware, std::span<std::uint8_t> flash, std::uint32_t offset) {
    ++hardware.loads;
    if (hardware.unpowered != 0) {
        return kUnpowered;
    }
    const FlashRegisters registers = registers_of(hardware.family);
    FlashController controller(hardware, flash);
    if (offset == registers.data) {
        return controller.read_data();
    }
    return offset == registers.operation ? controller.read_operation() : 0;
}

void store_register(
    state::AdapterHardware& hardware, std::span<std::uint8_t> flash, std::uint32_t offset,
    std::uint32_t value) {
    ++hardware.stores;
    if (hardware.unpowered != 0) {
        return;
    }
    const FlashRegisters registers = registers_of(hardware.family);
    FlashController controller(hardware, flash);
    if (offset == registers.data) {
        controller.write_data(value);
    } else if (offset == registers.operation) {
        controller.write_operation(value);
    }
}

void restore_power(state::AdapterHardware& hardware) {
    hardware.flash.latches = {};
    hardware.controller.latches = {};
    hardware.faults.power_cut_at = 0;
    hardware.unpowered = 0;
}

}  // namespace kxsim::models
