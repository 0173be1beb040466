// The products by their PCI device ids.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace kx {

struct Product {
    uint16_t device_id;
    uint8_t ports;               // Q4 and Q5; 0 for Q3, whose number the adapter lists do not show
    std::string_view name;       // Q3: of the adapter lists, at most 16 bytes
    std::string_view long_name;  // Q3: the model of a card
};

inline constexpr Product kProducts[] = {
    {0x20, 0, "", "Kestrix Q302-SR dual-port 10GbE offload adapter"},
    {0x21, 0, "Q302-LR", "Kestrix Q302-LR dual-port 10GbE long-reach offload adapter"},
    {0x22, 0, "Q301-SR", "Kestrix Q301-SR single-port 10GbE offload adapter"},
    {0x23, 0, "Q302-N", "Kestrix Q302-N dual-port 10GbE network adapter"},
    {0x24, 0, "Q304-T", "Kestrix Q304-T quad-port 1GbE offload adapter"},
    {0x25, 0, "Q302-CX", "Kestrix Q302-CX dual-port 10GbE CX4 offload adapter"},
    {0x26, 0, "Q301-CX", "Kestrix Q301-CX single-port 10GbE CX4 offload adapter"},
    {0x30, 0, "Q310-CR", "Kestrix Q310-CR single-port 10GbE SFP+ offload adapter"},
    {0x31, 0, "Q320-CR", "Kestrix Q320-CR dual-port 10GbE SFP+ offload adapter"},
    {0x32, 0, "Q310-BT", "Kestrix Q310-BT single-port 10GBASE-T offload adapter"},
    {0x33, 0, "Q310-SO", "Kestrix Q310-SO single-port 10GbE low-profile adapter"},
    {0x34, 0, "Q310-LR", ""},
    {0x35, 0, "Q320-LR", ""},
    {0x36, 0, "Q320-BC", "Kestrix Q320-BC dual-port 10GbE blade mezzanine adapter"},
    {0x37, 0, "Q320-CX", "Kestrix Q320-CX dual-port 10GbE CX4 blade adapter"},
    {0x4000, 2, "", ""},
    {0x4001, 2, "", ""},
    {0x4002, 2, "", ""},
    {0x4003, 2, "", ""},
    {0x4004, 2, "", ""},
    {0x4005, 2, "", ""},
    {0x4006, 2, "", ""},
    {0x4007, 2, "", ""},
    {0x4008, 2, "", ""},
    {0x4009, 2, "", ""},
    {0x400A, 2, "", ""},
    {0x400B, 2, "", ""},
    {0x400C, 2, "", ""},
    {0x400D, 2, "", ""},
    {0x400E, 2, "", ""},
    {0x400F, 1, "", ""},
    {0x4010, 4, "", ""},
    {0x4011, 4, "", ""},
    {0x4012, 4, "", ""},
    {0x4013, 1, "", ""},
    {0x4014, 4, "", ""},
    {0x4015, 2, "", ""},
    {0x4016, 2, "", ""},
    {0x5000, 2, "", ""},
    {0x5001, 2, "", ""},
    {0x5002, 2, "", ""},
    {0x5003, 4, "", ""},
    {0x5004, 4, "", ""},
    {0x5005, 2, "", ""},
    {0x5006, 4, "", ""},
    {0x5007, 2, "", ""},
    {0x5008, 2, "", ""},
    {0x5009, 4, "", ""},
    {0x500A, 4, "", ""},
    {0x500B, 2, "", ""},
    {0x500C, 2, "", ""},
    {0x500D, 2, "", ""},
    {0x500E, 4, "", ""},
    {0x500F, 1, "", ""},
    {0x5010, 2, "", ""},
    {0x5011, 2, "", ""},
    {0x5012, 4, "", ""},
    {0x5013, 2, "", ""},
    {0x5014, 2, "", ""},
    {0x5015, 2, "", ""},
    {0x5016, 2, "", ""},
};

// The product with a device id, or null.
[[nodiscard]] constexpr const Product* find_product(uint32_t device_id) {
    const Product* const found = std::find_if(
        std::begin(kProducts), std::end(kProducts),
        [device_id](const Product& product) { return product.device_id == device_id; });
    return found == std::end(kProducts) ? nullptr : found;
}

}  // namespace kx
