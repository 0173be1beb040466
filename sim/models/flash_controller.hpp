// The serial-flash controller of an adapter: a data and an operation register, connected to the
// chip.
#pragma once

#include <cstdint>
#include <span>

#include "models/serial_flash.hpp"
#include "state/adapter_hardware.hpp"

namespace kxsim::models {

class FlashController {
public:
    FlashController(state::AdapterHardware& hardware, std::span<std::uint8_t> content)
        : hardware_(hardware),
          controller_(hardware.controller),
          latches_(hardware.controller.latches),
          flash_(hardware.flash, hardware.faults, content) {}

    [[nodiscard]] std::uint32_t read_data();
    [[nodiscard]] std::uint32_t read_operation();
    void write_data(std::uint32_t value);
    void write_operation(std::uint32_t value);

private:
    [[nodiscard]] bool busy() const;
    void transfer(std::uint32_t operation);
    [[nodiscard]] std::uint32_t flash_changes() const;
    void release();
    void deselect();

    state::AdapterHardware& hardware_;
    state::FlashController& controller_;
    state::ControllerLatches& latches_;
    SerialFlash flash_;
};

}  // namespace kxsim::models
