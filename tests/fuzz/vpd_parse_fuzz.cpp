// VPD of Q5 adapters, whose keywords stand in any order: the whole input is the VPD.
#include <kxlinhw/kxlinhw.h>

#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::vector<uint8_t> vpd = fuzz::block({data, size}, KX_VPD_READ_SIZE);
    std::vector<KxVpdEntry> entries(KX_VPD_MOST_ENTRIES);
    uint32_t count = 0;
    parse_vpd(vpd.data(), entries.data(), &count);
    fuzz::require(count >= 1 && count <= KX_VPD_MOST_ENTRIES, "the product comes, room suffices");
    for (uint32_t k = 0; k < count; ++k) {
        fuzz::require(entries[k].index <= KX_VPD_V5, "only known keywords have entries");
        fuzz::require(entries[k].value[255] == '\0', "values end");
    }
    std::vector<AdapterInfoRecord> record(1);
    copy_vpd_fields(entries.data(), count, record.data());
    fuzz::require(
        record[0].boot.boot_config.signature[0] == 0 && record[0].next == nullptr,
        "values stay in their fields");
    // Entries that nobody vouches for: texts without NUL, unknown indexes.
    std::vector<KxVpdEntry> raw(size / sizeof(KxVpdEntry));
    if (!raw.empty()) {
        std::memcpy(raw.data(), data, raw.size() * sizeof(KxVpdEntry));
    }
    copy_vpd_fields(raw.data(), static_cast<uint32_t>(raw.size()), record.data());
    return 0;
}
