// The option ROM in flash: the whole input is the flash from its start on.
#include "fuzz/fed_adapter.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::fed_adapter = {.eeprom = {}, .rom = {data, size}, .config = {}};
    std::vector<uint8_t> block(KX_Q3_OPTION_ROM_SIZE);
    if (q3_get_dm_signature(0, block.data()) == 0) {
        fuzz::require(std::memcmp(block.data(), "$DM$", 4) == 0, "the mark leads its block");
    }
    if (get_pxe_oprom_version(0, block.data()) == 0) {
        fuzz::require(std::memcmp(block.data(), "$PXE", 4) == 0, "the mark leads its record");
    }
    std::vector<uint8_t> settings(KX_Q3_SETTINGS_SIZE);
    static_cast<void>(q3_read_settings(0, settings.data()));
    static_cast<void>(Is_Valid_q4oprom_Present(0));
    static_cast<void>(read_q4biosversion_from_boot(0));
    return 0;
}
