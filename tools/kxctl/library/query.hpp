// The library's query functions, which fill flat buffers, as functions that return records.
#pragma once

#include <kxlinhw/records.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "library/port.hpp"

namespace kx::ctl {

// Each throws Failure with the library's status.
[[nodiscard]] std::vector<CardInfo> query_cards();
[[nodiscard]] std::vector<Port> query_ports(const std::string& location);
[[nodiscard]] std::vector<DriverEntry> query_modules();
[[nodiscard]] std::vector<StatEntry> query_card_counters(const std::string& location);
[[nodiscard]] std::vector<StatEntry> query_port_counters(const std::string& interface);

// The cards with their ports, of which only interface, number and MAC are read.
struct CardWithPorts : CardInfo {
    std::vector<PortInfo> port_records;
};
[[nodiscard]] std::vector<CardWithPorts> query_cards_with_ports();

// One of them; throws Failure when it is missing.
[[nodiscard]] CardInfo query_card(const std::string& location);

// The records of a reply: flat copies, each without the pointers at its end. An incomplete copy at
// the end of the reply is left out.
template <class Record>
[[nodiscard]] std::vector<Record> records_of(std::span<const std::byte> reply);

}  // namespace kx::ctl
