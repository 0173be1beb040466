// Short texts that come from agents and drivers: a number, then texts up to a NUL each.
#include <kxlinhw/kxlinhw.h>

#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const int number = input.byte();
    fuzz::Text text(input.text());
    const std::size_t length = std::strlen(text.c_str());

    static_cast<void>(strToBool(text.c_str()));
    fuzz::require(trim(text.c_str()) <= text.c_str() + length, "trimming stays in the text");
    static_cast<void>(atohex(text.c_str()));
    static_cast<void>(getPortsQ4(text.c_str()));
    std::vector<char> key(static_cast<std::size_t>(number) + 1);
    const int cut = sysctlPathToKey(text.c_str(), key.data(), static_cast<int>(key.size()));
    fuzz::require(memchr(key.data(), 0, key.size()) != nullptr, "the key ends in its buffer");
    static_cast<void>(cut);
    CardList list{};
    fuzz::require(lookupCardInfo(&list, text.c_str()) == nullptr, "an empty list has no card");
    return 0;
}
