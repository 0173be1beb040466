// The answer of GetCardInfo.
#include <kxlinhw/records.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <pci/pci.h>
}

#include "floor/files.hpp"
#include "floor/floor.hpp"
#include "scenario.hpp"
#include "support/offload_table.hpp"

namespace bench::floor {
namespace {

void read_parameters(CardParams& params) {
    char text[17];
    read_text("/sys/module/zfab4/parameters/tx_coal", text);
    params.tx_coal = static_cast<int8_t>(std::strtoul(text, nullptr, 10));
    static char list[1 << 13];
    read_text("/proc/net/offload/devices", list);
    struct stat status;
    stat("/proc/sys/toe/toe0_tom", &status);
    for (const auto& row : kx::kOffloadReadings) {
        char path[64];
        std::snprintf(path, sizeof path, "/proc/sys/toe/toe0_tom/%s", row.name);
        read_text(path, text);
        kx::set_offload_value(params, row, std::atoi(text));
    }
}

}  // namespace

void card_info(void* buffer, uint32_t* length) {
    is_loaded(loaded_modules(), "zfab4");
    const auto adapters = find_adapters(PCI_FILL_CLASS | PCI_FILL_IRQ);
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    char firmware[ETHTOOL_FWVERS_LEN] = "";
    const auto ports = find_ports(socket, firmware);
    close(socket);
    auto* card = static_cast<CardInfo*>(buffer);
    for (const Function& function : adapters) {
        std::memset(card, 0, KX_CARD_COPY);
        std::memcpy(card->pci_bus_location, function.location, sizeof function.location);
        card->vendor_id = function.vendor;
        card->device_id = function.device;
        card->pci_class = function.device_class;
        card->irq = function.irq;
        std::memcpy(card->chip_type, "Q5", 3);
        std::memcpy(
            reinterpret_cast<char*>(card) + offsetof(CardInfo, offload_device), "OffloadCard", 12);
        card->params.state = 6;
        if (std::strcmp(card->pci_bus_location, kCard) == 0) {
            card->port_count = static_cast<uint16_t>(ports.size());
            std::memcpy(card->firmware, firmware, sizeof firmware);
        }
        read_parameters(card->params);
        card = reinterpret_cast<CardInfo*>(reinterpret_cast<char*>(card) + KX_CARD_COPY);
    }
    *length = static_cast<uint32_t>(adapters.size()) * KX_CARD_COPY;
}

}  // namespace bench::floor
