// UUIDs of domains, and the texts that agents give for them.
#pragma once

#include <kxlinhw/vmutils.h>

#include <array>

namespace kx::vm {

using Uuid = std::array<unsigned char, 16>;

// The bytes of a UUID of 32 hexadecimal digits without hyphens, as sscanf reads each pair; a byte
// that it cannot read stays zero. The code looks for the end at character i but reads byte i from
// character 2*i, so a text with fewer digits gives more bytes than it has pairs.
[[nodiscard]] Uuid uuid_of_text(const char* text);

// The domain with a UUID text; null when there is none, also for a null text.
[[nodiscard]] virDomainPtr domain_of_uuid(virConnectPtr connection, const char* text);

}  // namespace kx::vm
