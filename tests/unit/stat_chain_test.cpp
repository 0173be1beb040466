// Chains of counters: building, overwriting, and finding one by name.
#include "inventory/stat_chain.hpp"

#include <gtest/gtest.h>
#include <kxlinhw/statistics.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/text.hpp"

namespace {

using kx::inventory::StatChain;

// A chain in memory of its own, freed entry by entry.
class Chain {
public:
    Chain() = default;
    explicit Chain(const std::vector<std::pair<std::string, uint64_t>>& counters) {
        StatChain writer(&first);
        for (const auto& [name, value] : counters) {
            StatEntry* const entry = writer.next();
            std::memcpy(entry->name, name.data(), std::min(name.size(), sizeof entry->name));
            entry->value = value;
        }
    }
    ~Chain() {
        while (first != nullptr) {
            const kx::Block<StatEntry> entry(first);
            first = entry->next;
        }
    }
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    [[nodiscard]] std::vector<uint64_t> values() const {
        std::vector<uint64_t> values;
        for (const StatEntry* entry = first; entry != nullptr; entry = entry->next) {
            values.push_back(+entry->value);
        }
        return values;
    }

    StatEntry* first = nullptr;
};

TEST(StatChain, GrowsAtTheTailInAnEmptySlot) {
    const Chain chain({{"a", 1}, {"b", 2}, {"c", 3}});
    EXPECT_EQ(chain.values(), (std::vector<uint64_t>{1, 2, 3}));
}

TEST(StatChain, OverwritesAnExistingChainAndEndsWithIt) {
    Chain chain({{"a", 1}, {"b", 2}});
    StatEntry* const first = chain.first;
    StatChain writer(&chain.first);
    for (const uint64_t value : {uint64_t{7}, uint64_t{8}}) {
        StatEntry* const entry = writer.next();
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(kx::field_text(entry->name), "");
        EXPECT_EQ(+entry->value, 0U);
        entry->value = value;
    }
    EXPECT_EQ(writer.next(), nullptr);
    EXPECT_EQ(writer.next(), nullptr);
    EXPECT_FALSE(writer.short_of_memory());
    EXPECT_EQ(chain.first, first);
    EXPECT_EQ(chain.values(), (std::vector<uint64_t>{7, 8}));
}

TEST(StatChain, EntriesThatGetNoCounterKeepTheirs) {
    Chain chain({{"a", 1}, {"b", 2}, {"c", 3}});
    StatChain writer(&chain.first);
    writer.next()->value = 9;
    EXPECT_EQ(chain.values(), (std::vector<uint64_t>{9, 2, 3}));
}

TEST(StatLookup, FindsTheFirstThatAgreesButForTheLastCharacter) {
    const Chain chain({{"tx_bytes", 1}, {"rx_byteX", 2}, {"rx_bytes_ok", 3}, {"rx_bytes", 4}});
    uint64_t value = 0;
    EXPECT_EQ(stat_lookup(chain.first, "rx_bytes", &value), 0U);
    EXPECT_EQ(value, 2U);
    EXPECT_EQ(stat_lookup(chain.first, "rx_bytes_", &value), 0U);
    EXPECT_EQ(value, 3U);
    EXPECT_EQ(stat_lookup(chain.first, "tx_bytes", &value), 0U);
    EXPECT_EQ(value, 1U);
}

TEST(StatLookup, OneCharacterFindsTheFirstEntry) {
    const Chain chain({{"tx_bytes", 11}, {"rx_bytes", 12}});
    uint64_t value = 0;
    EXPECT_EQ(stat_lookup(chain.first, "z", &value), 0U);
    EXPECT_EQ(value, 11U);
}

TEST(StatLookup, NothingThatAgreesGives69AndLeavesTheValue) {
    const Chain chain({{"tx_bytes", 1}});
    uint64_t value = 77;
    EXPECT_EQ(stat_lookup(chain.first, "rx_bytes", &value), 69U);
    EXPECT_EQ(stat_lookup(chain.first, "tx_bytes__", &value), 69U);
    EXPECT_EQ(stat_lookup(chain.first, "", &value), 69U);
    EXPECT_EQ(stat_lookup(nullptr, "tx_bytes", &value), 69U);
    EXPECT_EQ(stat_lookup(nullptr, "t", &value), 69U);
    EXPECT_EQ(value, 77U);
}

TEST(StatLookup, ANameThatFillsItsFieldEndsThere) {
    const std::string thirty(30, 'n');
    const Chain chain({{thirty, 0x6E6E6E6E6E6E6E6E}});  // the value reads like more of the name
    uint64_t value = 0;
    EXPECT_EQ(stat_lookup(chain.first, (thirty + "x").c_str(), &value), 0U);
    EXPECT_EQ(value, 0x6E6E6E6E6E6E6E6EU);
    EXPECT_EQ(stat_lookup(chain.first, (thirty + "nx").c_str(), &value), 69U);
}

TEST(StatLookup, ReadsWholeCounters) {
    const Chain chain({{"bytes", 0xFFFFFFFFFFFFFFFF}});
    uint64_t value = 0;
    EXPECT_EQ(stat_lookup(chain.first, "bytes", &value), 0U);
    EXPECT_EQ(value, 0xFFFFFFFFFFFFFFFFU);
}

TEST(StatLookup, RefusesNullArguments) {
    const Chain chain({{"bytes", 1}});
    uint64_t value = 0;
    EXPECT_EQ(stat_lookup(chain.first, nullptr, &value), 317U);
    EXPECT_EQ(stat_lookup(chain.first, "bytes", nullptr), 317U);
}

}  // namespace
