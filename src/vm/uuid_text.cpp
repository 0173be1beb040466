#include "vm/uuid_text.hpp"

#include <cstdio>
#include <cstring>

#include "vm/libvirt_call.hpp"

namespace kx::vm {

Uuid uuid_of_text(const char* text) {
    Uuid uuid{};
    const std::size_t length = std::strlen(text);
    for (std::size_t i = 0; i < uuid.size() && text[i] != '\0'; ++i) {
        unsigned value = 0;
        if (2 * i < length && std::sscanf(text + 2 * i, "%02x", &value) == 1) {
            uuid[i] = static_cast<unsigned char>(value);
        }
    }
    return uuid;
}

virDomainPtr domain_of_uuid(virConnectPtr connection, const char* text) {
    return text == nullptr ? nullptr
                           : kLibvirt.virDomainLookupByUUID(connection, uuid_of_text(text).data());
}

}  // namespace kx::vm
