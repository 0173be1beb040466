// Replies of the library as records.
#include "library/query.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "library/record_text.hpp"

namespace {

using namespace kx::ctl;

// A reply of `size` bytes in a block of exactly that size, filled with `byte`.
std::vector<std::byte> reply_of(std::size_t size, unsigned char byte) {
    return std::vector<std::byte>(size, std::byte{byte});
}

template <class Record>
void put(std::vector<std::byte>& reply, std::size_t at, const Record& record, std::size_t size) {
    std::memcpy(reply.data() + at, &record, size);
}

TEST(Reply, OfNoBytesHoldsNoRecord) {
    EXPECT_TRUE(records_of<CardInfo>({}).empty());
    EXPECT_TRUE(records_of<PortInfo>({}).empty());
    EXPECT_TRUE(records_of<DriverEntry>({}).empty());
}

TEST(Reply, IsWalkedByTheSizeOfACopy) {
    std::vector<std::byte> reply = reply_of(std::size_t{2} * KX_CARD_COPY, 0);
    CardInfo card{};
    card.device_id = 0x4001;
    put(reply, 0, card, KX_CARD_COPY);
    card.device_id = 0x5002;
    put(reply, KX_CARD_COPY, card, KX_CARD_COPY);
    const std::vector<CardInfo> cards = records_of<CardInfo>(reply);
    ASSERT_EQ(cards.size(), 2U);
    EXPECT_EQ(std::uint32_t{cards[0].device_id}, 0x4001U);
    EXPECT_EQ(std::uint32_t{cards[1].device_id}, 0x5002U);
}

TEST(Reply, LeavesOutATornCopyAtItsEnd) {
    EXPECT_EQ(records_of<PortInfo>(reply_of(KX_PORT_COPY - 1, 0)).size(), 0U);
    EXPECT_EQ(records_of<PortInfo>(reply_of(2 * KX_PORT_COPY - 1, 0)).size(), 1U);
    EXPECT_EQ(records_of<DriverEntry>(reply_of(KX_DRIVER_COPY + 256, 0)).size(), 1U);
}

TEST(Reply, PointersOfTheLibraryAreForgotten) {
    const CardInfo card = records_of<CardInfo>(reply_of(KX_CARD_COPY, 0xFF)).at(0);
    EXPECT_TRUE(card.stats == nullptr);
    EXPECT_TRUE(card.ports == nullptr);
    EXPECT_TRUE(card.next == nullptr);
    const PortInfo port = records_of<PortInfo>(reply_of(KX_PORT_COPY, 0xFF)).at(0);
    EXPECT_TRUE(port.stats == nullptr);
    EXPECT_TRUE(port.next == nullptr);
}

TEST(RecordText, EndsAtItsFieldWhenItHasNoNul) {
    const CardInfo card = records_of<CardInfo>(reply_of(KX_CARD_COPY, 'x')).at(0);
    EXPECT_EQ(field_text(card.pci_bus_location), std::string(16, 'x'));
    EXPECT_EQ(field_text(card.chip_type), "xxxxx");
    EXPECT_EQ(field_text(card.firmware), std::string(32, 'x'));
}

TEST(RecordText, EndsAtItsNulAndLosesTrailingBlanks) {
    const char field[16] = {'T', 'P', ' ', 'F', ' ', ' ', '\0', 'x'};
    EXPECT_EQ(field_text(field), "TP F");
    const char blank[4] = {' ', ' ', '\0', 'x'};
    EXPECT_EQ(field_text(blank), "");
    const char empty[4] = {};
    EXPECT_EQ(field_text(empty), "");
}

}  // namespace
