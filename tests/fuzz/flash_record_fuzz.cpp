// The record of a flash change in the journal: the whole input is record.toml. What is accepted is
// the same after it was written and read again.
#include <stdexcept>

#include "flash/record.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    try {
        const kx::ctl::FlashRecord record =
            kx::ctl::parse_record({reinterpret_cast<const char*>(data), size});
        fuzz::require(!record.range.empty(), "a change has sectors");
        fuzz::require(record.range.size() % record.sector_size == 0, "they are whole");
        const std::string text = kx::ctl::record_text(record);
        const kx::ctl::FlashRecord again = kx::ctl::parse_record(text);
        fuzz::require(kx::ctl::record_text(again) == text, "a record stays the same");
        fuzz::require(again.range == record.range, "its sectors too");
    } catch (const std::runtime_error&) {
    }
    return 0;
}
