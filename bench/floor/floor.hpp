// The floor: functions that give the same answers as the library with only the necessary system
// calls. They keep no inventory and allocate nothing. They rely on the measured machine (two Q5
// adapters, ports from eth0), and do not check what cannot fail there, so they are not an example
// for agents.
//
// A system call is necessary when the interface promises it to observers: the module list, the
// identity of every PCI function as libpci reads it (and libpci's own work for that), driver
// information of every interface, every request and both files of each port, every control file,
// every directory of the module tree.
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
