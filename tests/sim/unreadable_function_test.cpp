// The library ignores a PCI function whose ids it cannot read completely: with half of its ids it
// could be taken for another adapter.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <cerrno>
#include <kxsim/host.hpp>
#include <string>

namespace {

class UnreadableFunction : public testing::TestWithParam<const char*> {
protected:
    UnreadableFunction() : attached_(host_.attach()) {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = "03:00.4"});
        host_.adapter({.chip = "Q4", .location = "04:00.4"});
        host_.fail(
            {.call = "open",
             .times = 0,
             .error = EIO,
             .object = std::string("/sys/bus/pci/devices/0000:03:00.4/") + GetParam()});
    }

    kxsim::Host host_;
    kxsim::Attached attached_;
};

TEST_P(UnreadableFunction, IsNoCard) {
    EXPECT_EQ(getCardCount(), 1U);
    CardList* list = nullptr;
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, 0), 0U);
    EXPECT_EQ(list->card_count, 1);
    EXPECT_STREQ(list->cards->pci_bus_location, "04:00.4");
    EXPECT_TRUE(list->cards->next == nullptr);
    Close_Kxcard(list);
}

TEST_P(UnreadableFunction, IsNoAdapter) {
    EXPECT_EQ(scan_hbas(), 1U);
    EXPECT_EQ(get_chip_revision(0), 4);
    cleanup_and_exit(0);
}

INSTANTIATE_TEST_SUITE_P(Ids, UnreadableFunction, testing::Values("vendor", "device"));

}  // namespace
