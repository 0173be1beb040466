// VPD of Q4 and Q3 adapters, over which the template is written: the whole input is the EEPROM.
// Through the functions that fill a record from it, with a flash of the same bytes.
#include "fuzz/fed_adapter.hpp"
#include "fuzz/input.hpp"

namespace {

struct Generation {
    std::size_t size;
    std::size_t checksum;
    void (*init)(void*);
    void (*sum)(void*);
};

constexpr Generation kGenerations[] = {
    {KX_Q4_VPD_SIZE, 333, vpd_init_Q4, vpd_chksum_Q4},
    {KX_Q3_VPD_SIZE, 176, vpd_init_Q3, vpd_chksum_Q3},
};

void check_template(const Generation& generation, std::span<const uint8_t> bytes) {
    std::vector<uint8_t> vpd = fuzz::block(bytes, generation.size);
    generation.init(vpd.data());
    generation.sum(vpd.data());
    unsigned sum = 0;
    for (std::size_t k = 0; k <= generation.checksum; ++k) {
        sum += vpd[k];
    }
    fuzz::require((sum & 0xFF) == 0xFF, "all bytes through the checksum sum up to 0xFF");
    const std::vector<uint8_t> first = vpd;
    generation.init(vpd.data());
    generation.sum(vpd.data());
    fuzz::require(vpd == first, "a template over a template changes nothing");
}

void fill_record(int32_t (*fill)(uint8_t, uint32_t, AdapterInfoRecord*), uint16_t device_id) {
    fuzz::fed_adapter.eeprom_place = 0;
    auto* const record = static_cast<AdapterInfoRecord*>(std::calloc(1, sizeof(AdapterInfoRecord)));
    record->device_id = device_id;
    record->chip_class = KX_CLASS_Q5;
    static_cast<void>(fill(0, 0xD0, record));
    fuzz::require(record->next == nullptr, "no value runs past the record's own fields");
    std::free(record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    for (const Generation& generation : kGenerations) {
        check_template(generation, {data, size});
    }
    fuzz::Input input(data, size);
    const auto device_id = input.number<uint16_t>();
    const auto rest = input.rest();
    fuzz::fed_adapter = {.eeprom = rest, .rom = rest, .config = rest};
    fill_record(q4_get_adapterinfo, device_id);
    fill_record(q3_get_adapterinfo, device_id);
    fill_record(q5_get_adapterinfo, device_id);
    return 0;
}
