#include "settings/port_values.hpp"

#include "settings/port_settings.hpp"

namespace kx::ctl {

std::optional<std::int64_t> known_limit(const Setting& setting, const Port& port) {
    const auto limit = setting.limit_in(port);
    return port.answered(setting.reads) && limit != 0 ? limit : std::nullopt;
}

// The record's field for the speed has 16 bits. A ring that the adapter does not have has the
// largest size 0.
std::optional<std::int64_t> known_value(const Setting& setting, const Port& port) {
    if (setting.reads != 0 && !port.answered(setting.reads)) {
        return std::nullopt;
    }
    if (setting.limit != kNoLimit && !known_limit(setting, port)) {
        return std::nullopt;
    }
    if (&setting == &port_setting("speed")) {
        return port.answers.speed_mbps();
    }
    const auto value = setting.value_in(&port.settings);
    return value && setting.known.contains(*value) ? value : std::nullopt;
}

}  // namespace kx::ctl
