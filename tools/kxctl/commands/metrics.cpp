// metrics: the state and the counters of the host's cards, for monitoring.
#include <algorithm>
#include <set>

#include "commands/nouns.hpp"
#include "failure/failure.hpp"
#include "files/replaced_file.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "output/metric.hpp"
#include "output/output.hpp"

namespace kx::ctl::metrics {
namespace {

constexpr std::uint64_t kBytesOfMegabit = 1'000'000 / 8;
constexpr std::uint16_t kUnknownSpeedMbps = 0xFFFF;

enum Which : std::size_t {
    kBuild,
    kCards,
    kCard,
    kPort,
    kLink,
    kSpeed,
    kMtu,
    kRxBytes,
    kTxBytes,
    kRxFrames,
    kTxFrames,
    kRxErrors,
    kRxDropped,
    kModule,
    kPortCounter,
    kCardCounter,
};

// In the order of Which.
std::vector<Metric> empty_metrics() {
    return {
        {"kxlinhw_build_info", "gauge", "Version of kxctl, always 1."},
        {"kxlinhw_cards", "gauge", "Cards that the drivers serve."},
        {"kxlinhw_card_info", "gauge", "What a card is, always 1."},
        {"kxlinhw_port_info", "gauge", "What a port is, always 1."},
        {"kxlinhw_port_link_up", "gauge", "Whether the port has a link."},
        {"kxlinhw_port_speed_bytes", "gauge", "Bytes a second that the link carries."},
        {"kxlinhw_port_mtu_bytes", "gauge", "Largest packet of the port."},
        {"kxlinhw_port_receive_bytes_total", "counter", "Bytes received."},
        {"kxlinhw_port_transmit_bytes_total", "counter", "Bytes transmitted."},
        {"kxlinhw_port_receive_frames_total", "counter", "Frames received."},
        {"kxlinhw_port_transmit_frames_total", "counter", "Frames transmitted."},
        {"kxlinhw_port_receive_crc_errors_total", "counter", "Frames with a wrong checksum."},
        {"kxlinhw_port_receive_dropped_total", "counter", "Frames lost for want of a buffer."},
        {"kxlinhw_module_loaded", "gauge", "Whether an installed driver module is loaded."},
        {"kxlinhw_port_statistic_total", "counter", "A counter under the driver's own name."},
        {"kxlinhw_card_statistic", "untyped", "Counter or level of the card's offload engine."},
    };
}

// The counters that are always included, by the driver's name.
struct CounterRow {
    std::string_view counter;
    Which metric;
};

constexpr CounterRow kCounters[] = {
    {"rx_bytes", kRxBytes},       {"tx_bytes", kTxBytes},
    {"rx_frames", kRxFrames},     {"tx_frames", kTxFrames},
    {"rx_crc_errors", kRxErrors}, {"rx_frames_dropped_no_buffer", kRxDropped},
};

class Collection {
public:
    explicit Collection(bool all) : all_(all) {
        add(kBuild, {{"version", KXCTL_VERSION}}, 1);
        const std::vector<CardInfo> cards = list_or_none(query_cards);
        add(kCards, {}, cards.size());
        for (const CardInfo& card : cards) {
            add_card(card);
        }
        for (const DriverEntry& module : list_or_none(query_modules)) {
            add(kModule, {{"module", field_text(module.module)}}, module.loaded == 1 ? 1 : 0);
        }
    }

    [[nodiscard]] const std::vector<Metric>& metrics() const { return metrics_; }

private:
    // A host without cards or drivers gives metrics too.
    template <class Record>
    static std::vector<Record> list_or_none(std::vector<Record> (*query)()) {
        try {
            return query();
        } catch (const Failure& failure) {
            if (failure.code() != ExitCode::kNotFound) {
                throw;
            }
            return {};
        }
    }

    // A sample with the same labels twice would make the whole text invalid.
    void add(Which which, const Labels& labels, std::uint64_t value) {
        if (seen_.insert({which, labels}).second) {
            metrics_[which].samples.push_back({labels, value});
        }
    }

    void add_card(const CardInfo& card) {
        const std::string location = field_text(card.pci_bus_location);
        add(kCard,
            {{"location", location},
             {"chip", field_text(card.chip_type)},
             {"model", field_text(card.model)},
             {"firmware", field_text(card.firmware)}},
            1);
        if (card.port_count > 0) {
            for (const PortInfo& port : query_ports(location)) {
                add_port(location, port);
            }
        }
        if (all_) {
            add_statistics(location);
        }
    }

    void add_port(const std::string& location, const PortInfo& port) {
        const std::string interface = field_text(port.interface_name);
        const Labels labels = {
            {"location", location},
            {"port", std::to_string(std::uint32_t{port.instance})},
            {"interface", interface}};
        Labels identity = labels;
        identity.emplace_back("mac", field_text(port.mac));
        add(kPort, identity, 1);
        add(kLink, labels, port.link_detected != 0 ? 1 : 0);
        const std::uint16_t mbps = port.settings.speed;
        if (mbps != 0 && mbps != kUnknownSpeedMbps) {
            add(kSpeed, labels, mbps * kBytesOfMegabit);
        }
        const std::string mtu = field_text(port.settings.mtu);
        if (!mtu.empty() && mtu.size() < 10 && mtu.find_first_not_of("0123456789") == mtu.npos) {
            add(kMtu, labels, std::stoul(mtu));
        }
        for (const StatEntry& counter : query_port_counters(location, port.instance)) {
            add_counter(labels, field_text(counter.name), counter.value);
        }
    }

    void add_counter(const Labels& labels, const std::string& name, std::uint64_t value) {
        const auto* const row = std::ranges::find(kCounters, name, &CounterRow::counter);
        if (row != std::end(kCounters)) {
            add(row->metric, labels, value);
        }
        if (all_) {
            Labels named = labels;
            named.emplace_back("counter", name);
            add(kPortCounter, named, value);
        }
    }

    // A card without an offload engine has none.
    void add_statistics(const std::string& location) {
        try {
            for (const StatEntry& entry : query_card_counters(location)) {
                add(kCardCounter,
                    {{"location", location},
                     {"group", std::to_string(entry.group)},
                     {"counter", field_text(entry.name)}},
                    entry.value);
            }
        } catch (const Failure&) {
            return;
        }
    }

    bool all_;
    std::vector<Metric> metrics_ = empty_metrics();
    std::set<std::pair<Which, Labels>> seen_;
};

}  // namespace

ExitCode run(const Arguments& arguments, Output& output) {
    const Collection collection(arguments.has("--all"));
    const std::string file = arguments.get("--output");
    const std::string text = exposition_text(collection.metrics());
    if (!file.empty()) {
        replace_file(file, text);
    }
    if (output.wants_json()) {
        output.json(
            Json{{"file", text_or_null(file)}, {"metrics", metrics_json(collection.metrics())}});
    } else if (file.empty()) {
        output.text(text);
    }
    return ExitCode::kDone;
}

}  // namespace kx::ctl::metrics
