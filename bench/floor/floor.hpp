// The floor: the same answers as the library's, from programs that make the necessary system calls
// and no others, keep no inventory and allocate nothing. They know the measured machine (two Q5
// adapters, ports named eth0 on), check nothing that cannot go wrong there, and are no example of
// how to do it.
//
// Necessary is what the interface promises whoever watches: the module list, the identity of every
// PCI function as libpci reads it (and libpci's own work for that), driver information of every
// interface, every request and both files of each port, every control file, every directory of the
// module tree.
#pragma once

#include <cstdint>

struct PortInfo;

namespace bench::floor {

void card_info(void* buffer, uint32_t* length);
void port_info(void* buffer, uint32_t* length);
void port_stat(void* buffer, uint32_t* length);
void driver_details(void* buffer, uint32_t* length);
void address(const char* interface_name, PortInfo* port);
void one_port(const char* interface_name, PortInfo* port);

}  // namespace bench::floor
