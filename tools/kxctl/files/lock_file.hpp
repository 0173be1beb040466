// Lock files next to the port settings, so that only one run of kxctl at a time works on them.
#pragma once

#include <cstdint>
#include <string>

#include "files/descriptor.hpp"

namespace kx::ctl {

// Only root may open the files, so that no other user can block root.
inline constexpr char kLockDirectory[] = "/etc/kestrix-plexo";

enum class LockPurpose : std::uint8_t { kRead, kWrite };

// Opens the file, and creates it when it is missing; for writing also its directory. Returns no
// descriptor when there is nothing to protect: the directory is missing or on a read-only file
// system; for reading also when the file cannot be opened. Throws Failure: kNoPermission when this
// process may not open the file.
[[nodiscard]] Descriptor open_lock_file(const std::string& path, LockPurpose purpose);

}  // namespace kx::ctl
