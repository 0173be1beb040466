#include "vm/virsh_name.hpp"
#include "vm/agent_services.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "vm/libvirt_call.hpp"
#include "vm/uuid_text.hpp"

namespace kx::vm {

namespace {

constexpr std::string_view kUuidForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";

bool is_id(const char* name) {
    const int reason = errno;
    char* end = nullptr;
    const long number = std::strtol(name, &end, 10);
    errno = reason;
    return end != name && *end == '\0' && number >= 0;
}

bool is_uuid(std::string_view name) {
    return std::equal(
        name.begin(), name.end(), kUuidForm.begin(), kUuidForm.end(), [](char c, char form) {
            return form == 'x' ? std::isxdigit(static_cast<unsigned char>(c)) != 0 : c == form;
        });
}

std::string uuid_text(const Uuid& uuid) {
    std::string text;
    std::size_t byte = 0;
    while (text.size() < kUuidForm.size()) {
        if (kUuidForm[text.size()] == '-') {
            text += '-';
            continue;
        }
        std::array<char, 3> pair{};
        std::snprintf(pair.data(), pair.size(), "%02x", uuid.at(byte++));
        text += pair.data();
    }
    return text;
}

}  // namespace

bool is_id_or_uuid(const char* name) { return is_id(name) || is_uuid(name); }

std::optional<std::string> virsh_name(virDomainPtr domain) {
    const char* const name = kLibvirt.virDomainGetName(domain);
    if (name == nullptr) {
        return std::nullopt;
    }
    if (!is_id_or_uuid(name)) {
        return name;
    }
    Uuid uuid{};
    if (kLibvirt.virDomainGetUUID(domain, uuid.data()) != 0) {
        return std::nullopt;
    }
    return uuid_text(uuid);
}

}  // namespace kx::vm
