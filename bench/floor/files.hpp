// Files as the floor reads them: open, one read, close.
#pragma once

#include <linux/ethtool.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace bench::floor {

// The content of the file as text; empty when there is no file. Returns its length.
std::size_t read_text(const char* path, char* text, std::size_t size);

template <std::size_t N>
std::size_t read_text(const char* path, char (&text)[N]) {
    return read_text(path, text, N);
}

// The Ethernet driver's check, and the list of loaded modules.
std::span<const char> loaded_modules();
bool is_loaded(std::span<const char> list, const char* module);

// The functions of the maker on the PCI bus, in libpci's order; `fields` selects what is read in
// addition to their identity.
struct Function {
    char location[16];
    unsigned vendor;
    unsigned device;
    unsigned device_class;
    unsigned irq;
};
std::span<const Function> find_adapters(int fields = 0);

// The ports of the measured card in their order, with the firmware text of the last one found.
struct Port {
    char name[16];
    unsigned number;
};
std::span<const Port> find_ports(int socket, char (&firmware)[ETHTOOL_FWVERS_LEN]);

bool request(int socket, const char* interface_name, void* command);

}  // namespace bench::floor
