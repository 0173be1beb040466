// Counters of a card, from the text files of its offload driver.
#include <kxlinhw/statistics.h>
#include <kxlinhw/status.h>

#include <cstdio>
#include <new>
#include <optional>
#include <string>

#include "inventory/paths.hpp"
#include "inventory/stat_chain.hpp"
#include "support/handle.hpp"
#include "support/small_file.hpp"
#include "support/text.hpp"

namespace {

constexpr std::size_t kLongestCounterLine = 119;
constexpr int kLastLine = 25;  // lines of either file that are read
constexpr int kQ3LinesOfGroup1 = 13;
constexpr int kQ4Headings = 1;

constexpr uint32_t kQ4Failure = 0xFFFFFFFF;

// The counter lines of a file, or nothing when the file cannot be opened.
std::optional<std::string> read_counter_file(const std::string& path) {
    return kx::read_file(path.c_str(), kLastLine * kLongestCounterLine);
}

// "Name: value". Any other line leaves the entry's name cut or empty, or its value 0.
void parse_counter(const std::string& line, StatEntry& entry) {
    char name[kLongestCounterLine + 1] = "";
    static_assert(kLongestCounterLine == 119, "the width of the name in the format");
    unsigned long value = 0;
    std::sscanf(line.c_str(), "%119[a-zA-Z]: %lu", name, &value);
    kx::copy_text(entry.name, name);
    entry.value = value;
}

// Write the lines after `headings` into the chain; store gets each entry and the number of its
// line.
template <class Store>
bool write_counters(
    const std::string& content, int headings, kx::inventory::StatChain& chain, Store store) {
    kx::LinePieces lines(content, kLongestCounterLine);
    for (int number = 1; number <= kLastLine; ++number) {
        const auto line = lines.next();
        if (!line) {
            break;
        }
        if (number <= headings) {
            continue;
        }
        StatEntry* const entry = chain.next();
        if (entry == nullptr) {
            break;
        }
        parse_counter(std::string(kx::c_text(*line)), *entry);
        store(number, *entry);
    }
    return !chain.short_of_memory();
}

// The first entry of the driver's directory whose name contains the card's location; empty when
// there is none.
std::string find_device(DIR* directory, std::string_view location) {
    while (const dirent* entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name.find(location) != name.npos) {
            return std::string(name);
        }
    }
    return {};
}

}  // namespace

extern "C" {

uint32_t getCardStats(KxStatEntryPtr* slot, const char* device_name) try {
    if (slot == nullptr || device_name == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    std::puts("In getCardStats");
    const auto content =
        read_counter_file(std::string(kx::inventory::kQ3Offload) + device_name + "/snmp");
    if (!content) {
        return KX_UNKNOWN_ERROR;
    }
    kx::inventory::StatChain chain(slot);
    const bool stored = write_counters(*content, 0, chain, [](int number, StatEntry& entry) {
        entry.group = number <= kQ3LinesOfGroup1 ? 1 : 2;
    });
    return stored ? KX_SUCCESS : KX_NO_MEMORY;
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

uint32_t getQ4CardStats(CardInfo* card) try {
    if (card == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const std::string location(kx::field_text(card->pci_bus_location));
    std::printf("cardInfo->PCIBusLocation: %s\n", location.c_str());
    const kx::Directory directory = kx::open_directory(kx::inventory::kQ4Driver);
    if (!directory) {
        card->stats = nullptr;
        return kQ4Failure;
    }
    const std::string device = find_device(directory.get(), location);
    if (device.empty()) {
        return KX_SUCCESS;
    }
    const auto content = read_counter_file(kx::inventory::kQ4Driver + device + "/tcp_stats");
    if (!content) {
        card->stats = nullptr;
        return kQ4Failure;
    }
    kx::inventory::StatChain chain(&card->stats);
    const bool stored = write_counters(*content, kQ4Headings, chain, [](int, StatEntry& entry) {
        entry.group = 2;
        std::printf("%s\t%ld\n", entry.name, static_cast<long>(entry.value));
    });
    return stored ? uint32_t{KX_SUCCESS} : kQ4Failure;
} catch (const std::bad_alloc&) {
    return kQ4Failure;
}

}  // extern "C"
