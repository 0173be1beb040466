// The boot configuration record of Q4 and Q5 flash: status of the flash, number of ports in eights,
// length of the base name, base name, suffix, then the option ROM's first KiB, then the record.
#include "fuzz/fed_adapter.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const int32_t status = input.byte() == 0xFF ? -11 : 0;
    const uint32_t ports = input.byte() * 8U;  // up to more than a record has bytes
    const std::string base = input.text();
    const auto suffix = fuzz::block(input.take(12), 12);
    const auto rom = input.take(1024);
    fuzz::fed_adapter = {.eeprom = {}, .rom = rom, .config = input.rest(), .status = status};

    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER);
    const int32_t read = read_flash_for_config(0, buffer.data());
    fuzz::require((read == 0) == (status == 0), "a flash that can be read gives a record");
    static_cast<void>(Is_Valid_q4config_Present(0));
    std::vector<Q4BootConfig> record(1);
    std::memcpy(record.data(), buffer.data(), sizeof(Q4BootConfig));
    Set_q4config_property_with_Default_Settings(record.data());
    fuzz::require(std::memcmp(record[0].signature, "CBIO", 4) == 0, "a repaired record is valid");
    fuzz::Text name(base);
    CopyInitiatorName(
        record.data(), name.c_str(), reinterpret_cast<const char*>(suffix.data()),
        static_cast<int>(base.size()) + 1);
    static_cast<void>(q4_load_default_config(0, ports));
    static_cast<void>(write_flash_for_config(0, record.data()));
    return 0;
}
