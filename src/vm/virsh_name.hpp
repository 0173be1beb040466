// Naming domains to virsh. It takes a word for an id if it can, else for a UUID, and only then for
// a name: a domain named "2" would hand its operations to the domain of that id.
#pragma once

#include <kxlinhw/vmutils.h>

#include <optional>
#include <string>

namespace kx::vm {

// A decimal number from 0 up as strtol reads it, with its blanks and sign, or a UUID of 8-4-4-4-12
// hexadecimal digits. Leaves errno alone.
[[nodiscard]] bool is_id_or_uuid(const char* name);

// The domain's name, or its UUID text when virsh could take the name for something else. Nothing
// when libvirt does not give it.
[[nodiscard]] std::optional<std::string> virsh_name(virDomainPtr domain);

}  // namespace kx::vm
