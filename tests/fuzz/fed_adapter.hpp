// An adapter whose EEPROM and flash a fuzz target fills. The library calls its own exported
// functions by their names, so that a program's definitions stand in front of them. Include it in
// one file of a program.
#pragma once

#include <kxlinhw/kxlinhw.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

namespace fuzz {

struct FedAdapter {
    std::span<const uint8_t>
        eeprom;                    // from the start of the VPD on, the parts one behind the other
    std::span<const uint8_t> rom;  // flash from 0 on
    std::span<const uint8_t> config;  // flash from 0x70000 on (Q4), 0x30000 on (Q3)
    std::size_t eeprom_place = 0;
    int32_t status = 0;  // of every flash call

    // As many bytes as there are; memcpy wants a block even for none.
    static void copy(void* to, std::span<const uint8_t> from, std::size_t most) {
        if (!from.empty()) {
            std::memcpy(to, from.data(), std::min(most, from.size()));
        }
    }

    int32_t read(uint32_t address, uint32_t config_start, uint32_t nwords, uint32_t* words) const {
        if (status != 0) {
            return status;
        }
        const auto source = address >= config_start ? config : rom;
        const std::size_t start = address >= config_start ? address - config_start : address;
        const auto bytes = source.subspan(std::min(start, source.size()));
        const std::size_t size = std::size_t{nwords} * sizeof(uint32_t);
        std::memset(words, 0xFF, size);
        copy(words, bytes, size);
        return 0;
    }
};

inline FedAdapter fed_adapter;

}  // namespace fuzz

extern "C" {

void msleep(uint32_t) {}
int32_t connect_to_hba(uint8_t) { return 0; }
int32_t connect_to_hba_Q4(uint8_t) { return 0; }
void disconnect_from_hba(uint8_t) {}

void vpd_read_dword(uint8_t, uint32_t, uint32_t, uint32_t* out) {
    auto& adapter = fuzz::fed_adapter;
    const auto bytes =
        adapter.eeprom.subspan(std::min(adapter.eeprom_place, adapter.eeprom.size()));
    *out = 0;
    fuzz::FedAdapter::copy(out, bytes, sizeof *out);
    adapter.eeprom_place += sizeof *out;
}

int32_t q4_read_flash(uint8_t, uint32_t address, uint32_t nwords, uint32_t* words, int) {
    return fuzz::fed_adapter.read(address, 0x70000, nwords, words);
}

int32_t q3_read_flash(uint8_t, uint32_t address, uint32_t nwords, uint32_t* words) {
    return words == nullptr ? -22 : fuzz::fed_adapter.read(address, 0x30000, nwords, words);
}

int32_t q4_write_flash(uint8_t, uint32_t, uint32_t n, const uint8_t* data, int) {
    volatile uint8_t last = n == 0 ? uint8_t{0} : data[n - 1];  // all of it may be read
    static_cast<void>(last);
    return fuzz::fed_adapter.status;
}

int32_t get_flash_params(uint8_t) { return 1 << 22; }
int32_t get_flash_params_sf_nsec(uint8_t) { return 64; }
int32_t q4_flash_erase_sectors(uint8_t, int, int) { return fuzz::fed_adapter.status; }

}  // extern "C"
