#include "library/pci_location.hpp"

#include <fmt/core.h>

#include <charconv>

namespace kx::ctl {
namespace {

struct Part {
    std::size_t digits;  // at most
    std::uint32_t most;
};

constexpr Part kDomain{8, UINT32_MAX};
constexpr Part kBus{2, 0xFF};
constexpr Part kDevice{2, 0x1F};
constexpr Part kFunction{1, 7};

std::optional<std::uint32_t> number_of(std::string_view digits, const Part& part) {
    std::uint32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, number, 16);
    const bool fits = digits.size() <= part.digits && number <= part.most;
    return error == std::errc() && rest == end && fits ? std::optional(number) : std::nullopt;
}

// Removes what is in front of a separator from the text; nothing when there is no separator.
std::optional<std::string_view> take_until(std::string_view& text, char separator) {
    const std::size_t end = text.find(separator);
    if (end == text.npos) {
        return std::nullopt;
    }
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(end + 1);
    return taken;
}

}  // namespace

std::optional<PciLocation> PciLocation::parse(std::string_view text) {
    const auto first = take_until(text, ':');
    const auto second = take_until(text, ':');
    const auto device_text = take_until(text, '.');
    if (!first || !device_text) {
        return std::nullopt;
    }
    const auto domain = second ? number_of(*first, kDomain) : std::nullopt;
    const auto bus = number_of(second ? *second : *first, kBus);
    const auto device = number_of(*device_text, kDevice);
    const auto function = number_of(text, kFunction);
    if (second.has_value() != domain.has_value() || !bus || !device || !function) {
        return std::nullopt;
    }
    return PciLocation{domain, *bus, *device, *function};
}

std::string PciLocation::text() const {
    return fmt::format("{:02x}:{:02x}.{:x}", bus, device, function);
}

std::string PciLocation::full_text() const {
    return domain ? fmt::format("{:04x}:{}", *domain, text()) : text();
}

bool PciLocation::matches(const PciLocation& other) const {
    return text() == other.text() && (!domain || !other.domain || domain == other.domain);
}

}  // namespace kx::ctl
