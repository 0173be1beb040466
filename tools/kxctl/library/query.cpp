#include "library/query.hpp"

#include <kxlinhw/inventory.h>
#include <kxlinhw/query.h>
#include <kxlinhw/statistics.h>
#include <kxlinhw/status.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "failure/failure.hpp"
#include "library/call.hpp"
#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

// The number of bytes of a record in a reply.
template <class Record>
constexpr std::size_t kCopySize = 0;
template <>
constexpr std::size_t kCopySize<CardInfo> = KX_CARD_COPY;
template <>
constexpr std::size_t kCopySize<PortInfo> = KX_PORT_COPY;
template <>
constexpr std::size_t kCopySize<DriverEntry> = KX_DRIVER_COPY;
template <>
constexpr std::size_t kCopySize<StatEntry> = KX_STAT_COPY;

// Pointers into the library's lists, which no longer exist when a reply is read.
void forget_pointers(CardInfo& card) {
    card.stats = nullptr;
    card.ports = nullptr;
}
void forget_pointers(PortInfo& port) { port.stats = nullptr; }
void forget_pointers(DriverEntry&) {}
void forget_pointers(StatEntry&) {}

std::size_t interface_count() {
    const HostWatch watch;
    std::error_code error;
    std::size_t count = 0;
    for (std::filesystem::directory_iterator entry("/sys/class/net", error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        ++count;
    }
    return count;
}

// The query functions do not know the size of the buffer, so it must hold every possible result.
// Requesting the number of ports first would not help: each call builds its own inventory, and an
// adapter may be plugged in between two calls. Every port is an interface of this host, so the
// buffer has room for a port for each interface and 16 MiB more: 12000 further ports or 30000
// cards. Memory that is not written costs nothing.
std::size_t reply_capacity() {
    constexpr std::size_t kSlack = std::size_t{16} << 20U;
    return kSlack + interface_count() * KX_PORT_COPY;
}

template <class Record, class Query>
std::vector<Record> ask(Query query) {
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(reply_capacity());
    std::uint32_t length = 0;
    check(call_library([&] { return query(buffer.get(), &length); }));
    return records_of<Record>({buffer.get(), length});
}

}  // namespace

template <class Record>
std::vector<Record> records_of(std::span<const std::byte> reply) {
    std::vector<Record> records(reply.size() / kCopySize<Record>);
    for (Record& record : records) {
        std::memcpy(static_cast<void*>(&record), reply.data(), kCopySize<Record>);
        forget_pointers(record);
        reply = reply.subspan(kCopySize<Record>);
    }
    return records;
}

template std::vector<CardInfo> records_of<CardInfo>(std::span<const std::byte>);
template std::vector<PortInfo> records_of<PortInfo>(std::span<const std::byte>);
template std::vector<DriverEntry> records_of<DriverEntry>(std::span<const std::byte>);
template std::vector<StatEntry> records_of<StatEntry>(std::span<const std::byte>);

std::vector<CardInfo> query_cards() { return ask<CardInfo>(GetCardInfo); }

std::vector<CardWithPorts> query_cards_with_ports() {
    CardList* list = nullptr;
    check(call_library(
        [&] { return InitAndFillInfo_Kxcard(&list, KX_FILL_CARD_PARAMS | KX_FILL_ADDRESSES); }));
    const auto close = [](CardList* all) { call_library([all] { return Close_Kxcard(all); }); };
    const std::unique_ptr<CardList, decltype(close)> owner(list, close);
    std::vector<CardWithPorts> cards;
    for (const CardInfo* card = list->cards; card != nullptr; card = card->next) {
        CardWithPorts& copy = cards.emplace_back(CardWithPorts{*card, {}});
        for (const PortInfo* port = card->ports; port != nullptr; port = port->next) {
            forget_pointers(copy.port_records.emplace_back(*port));
        }
        forget_pointers(copy);
        copy.next = nullptr;
    }
    return cards;
}

std::vector<Port> query_ports(const std::string& location) {
    forget_driver_answers();
    return ports_of(ask<PortInfo>([&](void* buffer, std::uint32_t* length) {
        return GetPortInfo(location.c_str(), buffer, length);
    }));
}

std::vector<DriverEntry> query_modules() { return ask<DriverEntry>(GetDriverDetails); }

std::vector<StatEntry> query_card_counters(const std::string& location) {
    return ask<StatEntry>([&](void* buffer, std::uint32_t* length) {
        return GetCardStats(location.c_str(), buffer, length);
    });
}

// GetPortStat would count the ports again, in a list in which the number may be another port.
std::vector<StatEntry> query_port_counters(const std::string& interface) {
    PortInfo port{};
    const std::uint32_t status =
        call_library([&] { return getTxRxStats(interface.c_str(), &port); });
    std::vector<StatEntry> counters;
    while (port.stats != nullptr) {
        const std::unique_ptr<StatEntry, decltype(&std::free)> entry(port.stats, std::free);
        port.stats = entry->next;
        counters.push_back(*entry);
        counters.back().next = nullptr;
    }
    if (status == KX_NO_MEMORY) {
        throw Failure::of_status(status);
    }
    return counters;  // none when the driver has none, or did not answer
}

CardInfo query_card(const std::string& location) {
    for (const CardInfo& card : query_cards()) {
        if (field_text(card.pci_bus_location) == location) {
            return card;
        }
    }
    throw Failure::of_status(KX_NO_SUCH_DEVICE);
}

}  // namespace kx::ctl
