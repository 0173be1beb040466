#include "output/natural_order.hpp"

#include <algorithm>

namespace kx::ctl {
namespace {

constexpr std::string_view kDecimal = "0123456789";
constexpr std::string_view kHexadecimal = "0123456789abcdefABCDEF";

// Such as 0000:03:00.4 and 00:07:43:05:00:01.
bool has_hexadecimal_numbers(std::string_view text) {
    return text.find(':') != text.npos &&
           text.find_first_not_of("0123456789abcdefABCDEF:.") == text.npos;
}

// Removes the number at the start of a text. Returns its digits without leading zeros.
std::string_view take_number(std::string_view& text, std::string_view digits) {
    const std::size_t end = std::min(text.find_first_not_of(digits), text.size());
    std::string_view number = text.substr(0, end);
    text.remove_prefix(end);
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

std::weak_ordering order_of_numbers(std::string_view left, std::string_view right) {
    const std::weak_ordering order = left.size() <=> right.size();
    return std::is_neq(order) ? order : left <=> right;
}

}  // namespace

std::weak_ordering natural_order(std::string_view left, std::string_view right) {
    const bool hexadecimal = has_hexadecimal_numbers(left);
    if (hexadecimal != has_hexadecimal_numbers(right)) {
        return hexadecimal ? std::weak_ordering::less : std::weak_ordering::greater;
    }
    const std::string_view digits = hexadecimal ? kHexadecimal : kDecimal;
    const auto is_digit = [digits](char letter) { return digits.find(letter) != digits.npos; };
    while (!left.empty() && !right.empty()) {
        if (is_digit(left[0]) && is_digit(right[0])) {
            const std::string_view first = take_number(left, digits);
            const std::string_view second = take_number(right, digits);
            if (const auto order = order_of_numbers(first, second); std::is_neq(order)) {
                return order;
            }
            continue;
        }
        if (left[0] != right[0]) {
            return static_cast<unsigned char>(left[0]) <=> static_cast<unsigned char>(right[0]);
        }
        left.remove_prefix(1);
        right.remove_prefix(1);
    }
    return left.size() <=> right.size();
}

}  // namespace kx::ctl
