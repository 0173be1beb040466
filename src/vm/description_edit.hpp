// Taking one block out of a domain's description as text, so that libvirt gets all else back byte
// for byte.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kx::vm {

using BlockTest = std::function<bool(std::string_view block)>;

// The declaration line and the description without the first block that passes the test, or
// nothing when none does. A block runs from "<ELEMENT" to the next "</ELEMENT>", both included; the
// blanks and line ends around it stay. Blocks that are not closed, or a description that closes
// one before it opens any, end the search. Takes time in proportion to the description's length.
[[nodiscard]] std::optional<std::string> without_block(
    std::string_view description, std::string_view element, const BlockTest& matches);

}  // namespace kx::vm
