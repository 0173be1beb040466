// The driver of a port: what it says about settings, and settings applied by the name of its
// interface. "port set" and "restore" use the same code.
#pragma once

#include <kxlinhw/records.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "files/descriptor.hpp"
#include "settings/change_line.hpp"

namespace kx::ctl {

class PortDriver {
public:
    explicit PortDriver(std::string interface_name);

    // What the library reads of the port. What the driver does not tell is 0 or empty.
    [[nodiscard]] PortInfo read() const;

    // The MAC of the hardware, as "00:07:43:..."; empty when the driver does not tell it.
    [[nodiscard]] std::string permanent_mac() const;

    // Refuse the lines that the driver lacks or that are beyond its limits. port: as read. wanted:
    // the settings as they would be.
    void refuse(
        std::span<ChangeLine> lines, const PortInfo& port, const PortSettings& wanted) const;

    // Apply the lines that are not refused or skipped, in the library's order. A line that the
    // library or the driver does not accept is refused.
    void apply(std::span<ChangeLine> lines, PortSettings& wanted) const;

private:
    // The driver's answer to a reading command, in record. Returns an errno, or 0.
    int ask(std::uint32_t command, std::span<unsigned char> record) const;
    [[nodiscard]] std::optional<Refusal> refusal(
        const ChangeLine& line, const PortInfo& port, const PortSettings& wanted) const;
    [[nodiscard]] std::optional<Refusal> refusal_of_speed(const PortSettings& wanted) const;

    std::string interface_;
    Descriptor socket_;
    int no_socket_;  // the errno when there is no socket
};

}  // namespace kx::ctl
