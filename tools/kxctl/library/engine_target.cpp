#include "library/engine_target.hpp"

#include <fmt/core.h>

#include "failure/failure.hpp"
#include "library/card_ports.hpp"
#include "library/host_interfaces.hpp"
#include "library/offload_devices.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"
#include "output/counted.hpp"

namespace kx::ctl {

EngineTarget::EngineTarget(const Arguments& arguments) : location_(card_location(arguments)) {
    static_cast<void>(query_card(location_));  // before its ports: there may be no such card
    ports_ = ports_at(location_);
    check_numbers(location_, ports_);
    record_ = read_card();
    check_engine();
}

// The library read the card's parameters from the engine of the first port that answered.
CardInfo EngineTarget::read_card() const {
    const CardInfo card = query_card(location_);
    if (card.port_count != ports_.size()) {
        throw Failure(
            ExitCode::kPartly, fmt::format(
                                   "{} has {}, of which {} answered", location_,
                                   counted(ports_.size(), "port"), std::uint16_t{card.port_count}));
    }
    return card;
}

void EngineTarget::check_engine() const {
    check_offload_lines(names_of(ports_), field_text(record_.chip_type) == "Q3");
}

Json EngineTarget::json() const { return card_json(location_, ports_); }

void EngineTarget::check_before_change() const {
    for (const Port& port : ports_) {
        const std::string name = field_text(port.interface_name);
        const std::optional<HostInterface> now = host_interface(name);
        const HostInterface expected{name, field_text(port.mac), PciLocation::parse(location_)};
        if (!is_same(expected, now)) {
            throw Failure(ExitCode::kBusy, movement(expected, now) + "; nothing was changed");
        }
    }
    check_engine();
}

CardInfo EngineTarget::read_again() const { return read_card(); }

}  // namespace kx::ctl
