// Removing one block from the text of a domain's description, so that libvirt gets all other bytes
// unchanged.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kx::vm {

using BlockTest = std::function<bool(std::string_view block)>;

// The declaration line and the description without the first block that passes the test, or nothing
// when no block passes it. A block runs from "<ELEMENT" to the next "</ELEMENT>", both included;
// the blanks and line ends around it stay. A block that is not closed ends the search, and so does
// a closing tag before the first opening tag. The time is proportional to the length of the
// description.
[[nodiscard]] std::optional<std::string> without_block(
    std::string_view description, std::string_view element, const BlockTest& matches);

}  // namespace kx::vm
