// The location of a function on the PCI bus, in every spelling that lspci, sysfs and the library
// print: "0000:03:00.4" or "03:00.4", with letters of either case.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kx::ctl {

struct PciLocation {
    std::optional<std::uint32_t> domain;  // nothing when the text has none
    std::uint32_t bus = 0;
    std::uint32_t device = 0;
    std::uint32_t function = 0;

    // Nothing when the text is not a location.
    [[nodiscard]] static std::optional<PciLocation> parse(std::string_view text);

    // "03:00.4", as in the library's records.
    [[nodiscard]] std::string text() const;
    // "0000:03:00.4", as in sysfs; without a domain the same as text().
    [[nodiscard]] std::string full_text() const;

    [[nodiscard]] bool operator==(const PciLocation&) const = default;

    // Whether a location with its domain is this one; without a domain, every domain fits.
    [[nodiscard]] bool matches(const PciLocation& other) const;
};

}  // namespace kx::ctl
