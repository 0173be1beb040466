// A change of this host as a list of steps in their order. Each step gives one setting of one
// target another value.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "output/json.hpp"
#include "settings/change_line.hpp"

namespace kx::ctl {

// kPortSetting: a setting of the table of port settings.
enum class StepKind : std::uint8_t { kPortSetting };

// What steps work on: a port by its interface, its MAC and its PCI function.
struct StepTarget {
    std::string interface;
    std::string mac;
    std::string location;  // with the PCI domain

    [[nodiscard]] bool operator==(const StepTarget&) const = default;
};

// Values are numbers as settings have them; null when a value is not known.
struct Step {
    StepKind kind = StepKind::kPortSetting;
    std::size_t target = 0;  // its place in the list of targets
    std::string key = {};
    Json before = {};
    Json wanted = {};  // null for a setting that is not asked for: it is put back when it changed
    Json now = {};     // as read back
    std::optional<Refusal> refused = {};

    [[nodiscard]] bool is_wanted() const { return !wanted.is_null(); }
    [[nodiscard]] bool has_changed() const {
        return !before.is_null() && !now.is_null() && before != now;
    }
};

}  // namespace kx::ctl
