// The adapter whose flash a command works on: found by its location, identified, read.
//
// The library has one bus scan and one register window for the whole process; both belong to the
// existing card object.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "flash/layout.hpp"
#include "flash/lock.hpp"
#include "library/host_interfaces.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class FlashCard {
public:
    // Scan the bus, lock the flash of the adapter at a location and read its vital product data.
    // Nothing is written to any adapter. writer: the command that will write, such as "flash
    // write-boot"; none when the flash is only read. Throws Failure when there is no such adapter,
    // when another kxctl works on it, or when its flash is unknown.
    explicit FlashCard(std::string location, const std::string& writer = {});
    ~FlashCard();
    FlashCard(const FlashCard&) = delete;
    FlashCard& operator=(const FlashCard&) = delete;

    [[nodiscard]] std::uint8_t index() const { return index_; }
    [[nodiscard]] const std::string& location() const { return location_; }
    // With the PCI domain: "0000:03:00.4".
    [[nodiscard]] std::string full_location() const;
    // Empty when it is unknown.
    [[nodiscard]] const std::string& serial() const { return serial_; }
    // The serial number of the adapter at another full location; empty when there is none.
    [[nodiscard]] std::string serial_at(const std::string& full_location) const;
    [[nodiscard]] const char* chip() const;
    [[nodiscard]] unsigned device_id() const { return device_id_; }
    [[nodiscard]] const FlashLayout& layout() const { return layout_; }
    [[nodiscard]] bool is_q3() const { return layout_.family == FlashFamily::kQ3; }

    // "03:00.4 (Q5, Q520-CR, serial number PT05160001)"
    [[nodiscard]] std::string name() const;
    // "eth2 (MAC 00:07:43:05:00:01), eth3 (MAC unknown)"; empty for a card without a driver.
    [[nodiscard]] std::string interfaces_text() const;
    // The first members of every answer: location, interfaces, chip, product, serial number.
    [[nodiscard]] Json json() const;

    // Throws Failure (kBusy) when another adapter is at the location now: device, address of the
    // registers and serial number, which takes a reading of its product data.
    void check_unmoved() const;
    // The same without the serial number, at the cost of two readings of the configuration space.
    void check_present() const;

    // Open the register window unless it is open. Some functions of the library close it.
    void open_window() const;

    // The bytes of a range of whole words. label: the text of the progress line; without it no
    // progress is shown.
    [[nodiscard]] std::vector<std::uint8_t> read(
        const Range& range, std::string_view label = {}) const;

private:
    // What the configuration space says about an adapter.
    struct Identity {
        std::uint32_t ids;        // of maker and device
        std::uint32_t registers;  // their address

        [[nodiscard]] bool operator==(const Identity&) const = default;
    };

    void find();
    [[nodiscard]] Identity read_identity() const;
    void measure();

    std::string location_;
    std::uint8_t index_ = 0;
    std::uint16_t device_id_ = 0;
    int revision_ = 0;  // of the chip: 3, 4 or 5
    std::string product_;
    std::string serial_;
    std::vector<HostInterface> interfaces_;
    Identity identity_{};  // of a card that is to be changed
    FlashLayout layout_;
    std::optional<FlashLock> lock_;
};

// Throw the failure of a flash function's status that is not success. what: "03:00.4: erasing".
void check_flash(std::int32_t status, const std::string& what);

}  // namespace kx::ctl
