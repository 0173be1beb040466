// Registers are read and written as memory, one word at a time; a host may provide the window.
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>

#include <array>
#include <cstdint>

namespace {

using Words = std::array<uint32_t, 3>;

uint64_t second(Words& words) { return reinterpret_cast<uintptr_t>(&words[1]); }

TEST(Register, IsReadAtItsAddress) {
    Words words{0x11111111, 0x87654321, 0x33333333};
    EXPECT_EQ(readl(second(words)), 0x87654321U);
}

TEST(Register, IsWrittenAtItsAddressAndNowhereElse) {
    for (const auto write : {&writel, &writel_Q4}) {
        Words words{0x11111111, 0x22222222, 0x33333333};
        write(0x87654321, second(words));
        EXPECT_EQ(words, (Words{0x11111111, 0x87654321, 0x33333333}));
    }
}

// Memory of the test in place of an adapter's registers, as a host may provide it.
class LentWindow : public testing::Test {
protected:
    LentWindow() {
        mmapd_addr = reinterpret_cast<uintptr_t>(words_.data());
        mmapd_adapter = 3;
    }
    ~LentWindow() override {
        mmapd_addr = 0;
        mmapd_adapter = 0;
    }

    Words words_{0x11111111, 0x22222222, 0x33333333};
};

TEST_F(LentWindow, IsBelievedWhateverItsLength) {
    EXPECT_EQ(q4_read_reg(3, 8), 0x33333333U);
    EXPECT_EQ(q3_read_reg(3, 8), 0x33333333);
    q4_write_reg(3, 0, 0x44444444);
    q3_write_reg(3, 8, 0x55555555);
    EXPECT_EQ(words_, (Words{0x44444444, 0x22222222, 0x55555555}));
}

TEST_F(LentWindow, IsThatOfItsAdapterButForWritesToQ4) {
    EXPECT_EQ(q4_read_reg(2, 0), 0U);
    EXPECT_EQ(q3_read_reg(2, 0), 0);
    q3_write_reg(2, 0, 0x44444444);
    EXPECT_EQ(words_[0], 0x11111111U);
    q4_write_reg(2, 0, 0x44444444);
    EXPECT_EQ(words_[0], 0x44444444U);
}

TEST_F(LentWindow, ThatWasTakenBackIsNeitherReadNorWritten) {
    mmapd_addr = 0;
    EXPECT_EQ(q4_read_reg(3, 0), 0U);
    EXPECT_EQ(q3_read_reg(3, 0), 0);
    q4_write_reg(3, 0, 0x44444444);
    q3_write_reg(3, 0, 0x44444444);
    EXPECT_EQ(words_[0], 0x11111111U);
}

}  // namespace
