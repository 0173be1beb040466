// The answers of the drivers of a host's interfaces.
#include <kxsim/nic.hpp>

#include <cstring>
#include <stdexcept>

#include "host/host_state.hpp"
#include "host/quiet.hpp"

namespace kxsim {
namespace {

std::int64_t instead_of_truth(const std::optional<std::uint32_t>& number) {
    return number ? std::int64_t{*number} : -1;
}

std::optional<std::uint32_t> told(std::int64_t number) {
    return number < 0 ? std::nullopt : std::optional(static_cast<std::uint32_t>(number));
}

state::Counter make_counter(const NicCounter& counter) {
    state::Counter record{};
    if (counter.name.size() > sizeof record.name) {
        throw std::invalid_argument("counter name \"" + counter.name + "\" is too long");
    }
    std::memcpy(record.name, counter.name.data(), counter.name.size());
    record.value = counter.value;
    record.step = counter.step;
    return record;
}

// A place in the pool: that of the interface when it is large enough, otherwise a new one.
std::uint32_t take_counters(
    state::Network& network, const state::CounterRange& range, std::size_t count) {
    if (count <= range.count) {
        return range.first;
    }
    if (count > state::kMostCounters - network.counters_used) {
        throw std::invalid_argument("the host is full of counters");
    }
    const std::uint32_t first = network.counters_used;
    network.counters_used += static_cast<std::uint32_t>(count);
    return first;
}

}  // namespace

std::vector<NicCounter> default_counters() {
    return {
        {"rx_bytes", 1'500'000, 15'000},
        {"tx_bytes", 1'200'000, 12'000},
        {"rx_frames", 1000, 10},
        {"tx_frames", 1000, 10},
        {"rx_multicast_frames", 20, 1},
        {"rx_pause_frames", 0, 0},
        {"tx_pause_frames", 0, 0},
        {"rx_crc_errors", 0, 0},
        {"rx_frames_dropped_no_buffer", 3, 0},
    };
}

void write_nic(state::Network& network, state::Interface& record, const Nic& nic) {
    std::vector<state::Counter> counters;
    for (const NicCounter& counter : nic.counters) {
        counters.push_back(make_counter(counter));
    }
    state::CounterRange& range = record.counters;
    range.first = take_counters(network, range, counters.size());
    range.count = static_cast<std::uint32_t>(counters.size());
    range.announced = instead_of_truth(nic.announced_counters);
    range.named = instead_of_truth(nic.named_counters);
    range.valued = instead_of_truth(nic.valued_counters);
    std::copy(counters.begin(), counters.end(), network.counters + range.first);
    record.nic = nic;
}

void Host::nic(std::string_view interface_name, const Nic& nic) {
    write_nic(*state_->network, interface_record(*state_->network, interface_name), nic);
}

Nic Host::nic(std::string_view interface_name) const {
    const state::Network& network = *state_->network;
    const state::Interface& record = interface_record(*state_->network, interface_name);
    Nic nic;
    static_cast<NicSettings&>(nic) = record.nic;
    nic.counters.clear();
    for (std::uint32_t i = 0; i < record.counters.count; ++i) {
        const state::Counter& counter = network.counters[record.counters.first + i];
        nic.counters.push_back(
            {std::string(counter.name, strnlen(counter.name, sizeof counter.name)), counter.value,
             counter.step});
    }
    nic.announced_counters = told(record.counters.announced);
    nic.named_counters = told(record.counters.named);
    nic.valued_counters = told(record.counters.valued);
    return nic;
}

}  // namespace kxsim
