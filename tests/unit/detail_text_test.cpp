// The detail text never passes its 1024 bytes, whatever is appended.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "settings/detail_text.hpp"

namespace {

using kx::settings::append_detail;
using kx::settings::clear_detail;
using kx::settings::CutMessage;
using kx::settings::set_detail;
using testing::Each;

class DetailText : public testing::Test {
protected:
    void SetUp() override { std::memset(errStr, 0, sizeof errStr); }
    void TearDown() override { std::memset(errStr, 0, sizeof errStr); }
};

TEST_F(DetailText, MessagesStandOneBehindTheOther) {
    append_detail("one; ");
    append_detail("two; ");
    EXPECT_STREQ(errStr, "one; two; ");
}

TEST_F(DetailText, TheWholeIsCutAtItsLastByte) {
    for (int k = 0; k < 10; ++k) {
        append_detail(std::string(255, static_cast<char>('a' + k)));
    }
    EXPECT_EQ(std::strlen(errStr), 1023U);
    EXPECT_EQ(errStr[1019], 'd');
    EXPECT_EQ(errStr[1022], 'e');
}

TEST_F(DetailText, AFullTextStaysAsItIs) {
    append_detail(std::string(5000, 'x'));
    append_detail("y");
    EXPECT_EQ(std::string(errStr), std::string(1023, 'x'));
}

TEST_F(DetailText, ATextThatAnAgentLeftUnterminatedIsTerminated) {
    std::memset(errStr, 'x', sizeof errStr);
    append_detail("y");
    EXPECT_EQ(std::string(errStr, sizeof errStr), std::string(1023, 'x') + '\0');
}

TEST_F(DetailText, SettingReplacesWhatStood) {
    append_detail("a long message; ");
    set_detail("short");
    EXPECT_STREQ(errStr, "short");
    EXPECT_EQ(errStr[6], '\0');
    EXPECT_EQ(errStr[15], '\0');
}

TEST_F(DetailText, ClearingZeroesAllBytes) {
    std::memset(errStr, 'x', sizeof errStr);
    clear_detail();
    EXPECT_THAT(errStr, Each('\0'));
}

TEST_F(DetailText, MessagesAreCutForTheirBuffer) {
    const std::string text(300, 'x');
    EXPECT_EQ(CutMessage<256>("%s", text.c_str()).c_str(), std::string(255, 'x'));
    EXPECT_EQ(CutMessage<64>("%.62s; ", text.c_str()).c_str(), std::string(62, 'x') + ";");
    EXPECT_STREQ(CutMessage<64>("Set %s for %d", "mtu", 7).c_str(), "Set mtu for 7");
}

}  // namespace
