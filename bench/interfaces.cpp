#include "interfaces.hpp"

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

std::string name(unsigned number) { return "eth" + std::to_string(number); }

void add_pair(std::FILE* ip, unsigned first, unsigned queues) {
    const std::string counts = queues == 1 ? std::string()
                                           : " numrxqueues " + std::to_string(queues) +
                                                 " numtxqueues " + std::to_string(queues);
    std::fprintf(
        ip, "link add %s%s type veth peer name %s%s\n", name(first).c_str(), counts.c_str(),
        name(first + 1).c_str(), counts.c_str());
}

void make_port(std::FILE* ip, unsigned number) {
    std::fprintf(
        ip, "addr add 192.0.%u.%u/24 dev %s\n", number / 250, 1 + number % 250,
        name(number).c_str());
    std::fprintf(ip, "link set %s up\n", name(number).c_str());
}

}  // namespace

void make_interfaces(unsigned interfaces, unsigned ports, unsigned queues) {
    std::FILE* const ip = popen("ip -batch -", "we");
    if (ip == nullptr) {
        throw std::runtime_error("ip cannot be run");
    }
    for (unsigned i = 0; i < interfaces; i += 2) {
        add_pair(ip, i, i < ports ? queues : 1);
    }
    for (unsigned i = 0; i < ports; ++i) {
        make_port(ip, i);
        if (i % 2 == 0 && i + 1 >= ports) {
            std::fprintf(ip, "link set %s up\n", name(i + 1).c_str());
        }
    }
    if (pclose(ip) != 0) {
        throw std::runtime_error("ip did not make the interfaces");
    }
}

}  // namespace bench
