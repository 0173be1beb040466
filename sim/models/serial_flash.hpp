// The SPI flash chip of an adapter, which exchanges single bytes with its controller.
#pragma once

#include <cstdint>
#include <span>

#include "state/adapter_hardware.hpp"

namespace kxsim::models {

class SerialFlash {
public:
    // content: the chip's bytes, 0xFF where erased. Addresses wrap around at its end.
    SerialFlash(
        state::SerialFlash& chip, const state::FlashFaults& faults, std::span<std::uint8_t> content)
        : chip_(chip), latches_(chip.latches), faults_(faults), content_(content) {}

    // One byte in each direction. The first byte after deselect() is the command.
    std::uint8_t exchange(std::uint8_t in);

    // The end of a command: write enable, page program and sector erase take effect here.
    void deselect();

private:
    void begin(std::uint8_t command);
    std::uint8_t answer(std::uint8_t in, std::uint32_t position);
    std::uint8_t identification(std::uint32_t position) const;
    std::uint8_t status();
    std::uint8_t read_byte(std::uint32_t position);
    std::uint8_t next_byte();
    std::size_t wrapped(std::size_t address) const;
    void take_page_byte(std::uint8_t in);
    void program();
    void erase();
    void start_write(std::uint32_t polls);

    state::SerialFlash& chip_;
    state::FlashLatches& latches_;
    const state::FlashFaults& faults_;
    std::span<std::uint8_t> content_;
};

// A chip with a manufacturer and a capacity code. Sectors have 64 KiB, or 256 KiB for code 24.
void fit_flash(
    state::SerialFlash& chip, std::uint8_t manufacturer, std::uint8_t type,
    std::uint8_t capacity_code);

}  // namespace kxsim::models
