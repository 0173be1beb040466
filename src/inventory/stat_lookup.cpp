// One counter of a chain by its name.
#include <kxlinhw/statistics.h>
#include <kxlinhw/status.h>

#include <string_view>

#include "support/text.hpp"

extern "C" {

// Agents rely on this: the last character of the name is not compared.
uint32_t stat_lookup(StatEntry* first, const char* name, uint64_t* value_out) {
    if (name == nullptr || value_out == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const std::string_view wanted = name;
    if (wanted.empty()) {
        return KX_NO_SUCH_STAT;
    }
    for (const StatEntry* entry = first; entry != nullptr; entry = entry->next) {
        if (kx::equal_over(kx::field_text(entry->name), wanted, wanted.size() - 1)) {
            *value_out = entry->value;
            return KX_SUCCESS;
        }
    }
    return KX_NO_SUCH_STAT;
}

}  // extern "C"
