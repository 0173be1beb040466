// UUID texts as bytes; the memory of the text ends directly after its NUL.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "vm/uuid_text.hpp"

namespace {

// The bytes as digits, of a text whose block holds nothing else.
std::string bytes_of(const std::string& text) {
    const auto exact = std::make_unique<char[]>(text.size() + 1);
    text.copy(exact.get(), text.size());
    std::string digits;
    for (const unsigned char byte : kx::vm::uuid_of_text(exact.get())) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        digits += pair;
    }
    return digits;
}

TEST(UuidText, IsReadTwoDigitsAByte) {
    EXPECT_EQ(bytes_of("0123456789abcdefFEDCBA9876543210"), "0123456789abcdeffedcba9876543210");
}

TEST(UuidText, OfEveryLengthIsReadInsideItsBounds) {
    const std::string whole(40, 'a');
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        // Byte i is requested as long as character i exists, and found as long as character 2*i
        // exists.
        std::string expected;
        for (std::size_t i = 0; i < 16; ++i) {
            const bool pair = 2 * i + 1 < length;
            const bool single = 2 * i < length;
            expected += pair ? "aa" : single ? "0a" : "00";
        }
        EXPECT_EQ(bytes_of(whole.substr(0, length)), expected) << length;
    }
}

TEST(UuidText, BlanksAndSignsAreWhatScanningMakesOfThem) {
    EXPECT_EQ(bytes_of(" 1122"), "111202" + std::string(26, '0'));
    EXPECT_EQ(bytes_of("-1+2"), "ff02" + std::string(28, '0'));
}

}  // namespace
