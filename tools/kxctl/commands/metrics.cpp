// metrics: the state and the counters of the host's cards, for monitoring.
#include <fmt/core.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <set>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "failure/unread.hpp"
#include "files/replaced_file.hpp"
#include "library/adapter_query.hpp"
#include "library/module_files.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "output/incomplete.hpp"
#include "output/metric.hpp"
#include "output/output.hpp"

namespace kx::ctl::metrics {
namespace {

constexpr std::uint64_t kBytesOfMegabit = 1'000'000 / 8;

enum Which : std::size_t {
    kBuild,
    kSuccess,
    kDuration,
    kAdapters,
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
        {"kxlinhw_collector_success", "gauge", "Whether the collector could read everything."},
        {"kxlinhw_collector_duration_seconds", "gauge", "Time that the collector took."},
        {"kxlinhw_adapters", "gauge", "Adapters on the PCI bus, with and without a driver."},
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

// A host without cards or drivers has metrics too.
bool is_empty_list(const Failure& failure) {
    const std::uint32_t status = failure.status().value_or(KX_SUCCESS);
    return status == KX_NO_CARDS || status == KX_NO_ADAPTERS || status == KX_DRIVER_NOT_LOADED;
}

class Collection {
public:
    Collection(bool all, Incomplete& incomplete) : all_(all), incomplete_(incomplete) {
        add(kBuild, {{"version", KXCTL_VERSION}}, std::uint64_t{1});
        collect("adapters", [this] { add_count(kAdapters, query_adapter_count()); });
        collect("cards", [this] {
            cards_ = list_or_none(query_cards);
            add_count(kCards, cards_->size());
            for (const CardInfo& card : *cards_) {
                add_card(card);
            }
        });
        collect(
            "ports", [this] { for_each_card([this](const CardInfo& card) { add_ports(card); }); });
        if (all_) {
            collect("offload", [this] {
                for_each_card([this](const CardInfo& card) { add_statistics(card); });
            });
        }
        collect("modules", [this] {
            for (const InstalledModule& module : list_or_none(query_installed_modules)) {
                add_module(module.entry);
            }
        });
    }

    [[nodiscard]] const std::vector<Metric>& metrics() const { return metrics_; }

private:
    // What a collector added before it failed stays.
    template <class Function>
    void collect(const char* name, Function function) {
        using Seconds = std::chrono::duration<double>;
        const auto start = std::chrono::steady_clock::now();
        collector_ = name;
        success_ = true;
        attempt(function);
        for (const std::string& reason : take_unread_reasons()) {
            add_reason(reason);
        }
        const Labels labels = {{"collector", name}};
        add(kSuccess, labels, std::uint64_t{success_});
        add(kDuration, labels, Seconds(std::chrono::steady_clock::now() - start).count());
    }

    template <class Function>
    void attempt(Function function) {
        try {
            function();
        } catch (const Failure& failure) {
            add_reason(failure.what());
        }
    }

    void add_reason(std::string_view reason) {
        incomplete_.add(fmt::format("{}: {}", collector_, reason));
        success_ = false;
    }

    // A card that fails does not keep the others from being read.
    template <class Function>
    void for_each_card(Function function) {
        if (!cards_) {
            throw Failure(ExitCode::kFailed, "The cards are not known");
        }
        for (const CardInfo& card : *cards_) {
            attempt([&] { function(card); });
        }
    }

    template <class Record>
    static std::vector<Record> list_or_none(std::vector<Record> (*query)()) {
        try {
            return query();
        } catch (const Failure& failure) {
            if (!is_empty_list(failure)) {
                throw;
            }
            return {};
        }
    }

    // A sample with the same labels twice would make the whole text invalid.
    void add(Which which, const Labels& labels, SampleValue value) {
        if (seen_.insert({which, labels}).second) {
            metrics_[which].samples.push_back({labels, value});
        }
    }

    // Nobody knows how many there are when something could not be read.
    void add_count(Which which, std::size_t count) {
        if (unread_reasons().empty()) {
            add(which, {}, count);
        }
    }

    // Another state: the list of loaded modules could not be read.
    void add_module(const DriverEntry& entry) {
        if (entry.loaded <= 1) {
            add(kModule, {{"module", field_text(entry.module)}}, std::uint64_t{entry.loaded});
        }
    }

    void add_card(const CardInfo& card) {
        add(kCard,
            {{"location", field_text(card.pci_bus_location)},
             {"chip", field_text(card.chip_type)},
             {"model", field_text(card.model)},
             {"firmware", field_text(card.firmware)}},
            std::uint64_t{1});
    }

    void add_ports(const CardInfo& card) {
        const std::string location = field_text(card.pci_bus_location);
        if (card.port_count > 0) {
            for (const Port& port : query_ports(location)) {
                add_port(location, port);
            }
        }
    }

    void add_port(const std::string& location, const Port& port) {
        const std::string interface = field_text(port.interface_name);
        const Labels labels = {
            {"location", location},
            {"port", std::to_string(std::uint32_t{port.instance})},
            {"interface", interface}};
        Labels identity = labels;
        identity.emplace_back("mac", field_text(port.mac));
        add(kPort, identity, std::uint64_t{1});
        if (port.answers.to(ETHTOOL_GLINK) == Answered::kGiven) {
            add(kLink, labels, std::uint64_t{port.link_detected != 0});
        }
        if (const auto mbps = port.answers.speed_mbps()) {
            add(kSpeed, labels, *mbps * kBytesOfMegabit);
        }
        for (const std::string& reason : port.unread({ETHTOOL_GLINK, ETHTOOL_GSET})) {
            add_reason(reason);
        }
        const std::string mtu = field_text(port.settings.mtu);
        if (!mtu.empty() && mtu.size() < 10 && mtu.find_first_not_of("0123456789") == mtu.npos) {
            add(kMtu, labels, std::stoul(mtu));
        }
        for (const StatEntry& counter : query_port_counters(interface)) {
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
    void add_statistics(const CardInfo& card) {
        const std::string location = field_text(card.pci_bus_location);
        try {
            for (const StatEntry& entry : query_card_counters(location)) {
                add(kCardCounter,
                    {{"location", location},
                     {"group", std::to_string(entry.group)},
                     {"counter", field_text(entry.name)}},
                    std::uint64_t{entry.value});
            }
        } catch (const Failure& failure) {
            if (failure.code() != ExitCode::kNotFound &&
                failure.code() != ExitCode::kNotSupported) {
                throw;
            }
        }
    }

    bool all_;
    const char* collector_ = "";
    bool success_ = true;
    Incomplete& incomplete_;
    std::optional<std::vector<CardInfo>> cards_;
    std::vector<Metric> metrics_ = empty_metrics();
    std::set<std::pair<Which, Labels>> seen_;
};

ExitCode run(const Arguments& arguments, Output& output) {
    const Collection collection(arguments.has("--all"), output.incomplete());
    const std::string given = arguments.get("--output");
    const std::string file = Output::is_named(given) ? "" : given;
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

std::vector<Command> rows() {
    return {
        {
            .noun = "metrics",
            .verb = "",
            .help = "Show state and counters for monitoring",
            .about = "Metrics in the text format of Prometheus: cards, ports with link and "
                     "speed, their most useful counters, driver modules. A host without cards "
                     "has metrics too. kxlinhw_collector_success is 0 for each collector that "
                     "could not read something; the command then prints why on standard error and "
                     "ends with exit status 4. With --output the metrics replace the file as a "
                     "whole, as "
                     "the textfile collector of the node exporter requires, and nothing is "
                     "printed.",
            .arguments =
                {{.name = "--all", .help = "Every counter of the ports and offload engines"},
                 {.name = "--output", .help = "Write to this file instead", .value = "FILE"}},
            .examples =
                {"kxctl metrics",
                 "kxctl metrics --all --output /var/lib/prometheus/node-exporter/kxlinhw.prom"},
            .run = run,
        },
    };
}

const TablePart kRows(1200, rows);

}  // namespace
}  // namespace kx::ctl::metrics
