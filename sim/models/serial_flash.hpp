// The SPI flash chip of an adapter, byte by byte as its controller exchanges them.
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

    // One byte each way. The first one after deselect() is the command.
    std::uint8_t exchange(std::uint8_t in);

    // The end of a command: write enable, page program and sector erase take effect here.
    void deselect();

private:
    void begin(std::uint8_t command);
    std::uint8_t answer(std::uint8_t in, std::uint32_t position);
    std::uint8_t identification(std::uint32_t position) const;
    std::uint8_t status();
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

// A chip of a manufacturer and capacity code, erased sectors as large as its kind has them.
// Sectors are 64 KiB, but 256 KiB in chips of code 24.
void fit_flash(
    state::SerialFlash& chip, std::uint8_t manufacturer, std::uint8_t type,
    std::uint8_t capacity_code);

}  // namespace kxsim::models
