// Names of domains for virsh. virsh reads a word as an id if it can, otherwise as a UUID, and only
// then as a name: an operation on a domain named "2" would affect the domain with that id.
#pragma once

#include <kxlinhw/vmutils.h>

#include <optional>
#include <string>

namespace kx::vm {

// A decimal number from 0 up as strtol reads it, with blanks and a sign, or a UUID of 8-4-4-4-12
// hexadecimal digits. Does not change errno.
[[nodiscard]] bool is_id_or_uuid(const char* name);

// The domain's name, or its UUID text when virsh could read the name as something else. Nothing
// when libvirt does not return it.
[[nodiscard]] std::optional<std::string> virsh_name(virDomainPtr domain);

}  // namespace kx::vm
