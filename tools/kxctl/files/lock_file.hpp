// Files beside the port settings that runs of kxctl lock, so that they take turns.
#pragma once

#include <cstdint>
#include <string>

#include "files/descriptor.hpp"

namespace kx::ctl {

// Only root may open the files, so that nobody else keeps root waiting.
inline constexpr char kLockDirectory[] = "/etc/kestrix-plexo";

enum class LockPurpose : std::uint8_t { kRead, kWrite };

// Opens the file, and makes it when it is missing. For writing, its directory is made too. No
// descriptor when there is nothing to protect: the directory is missing, or lies on a file system
// that is read only; for reading also when the file is not to be had. Throws Failure:
// kNoPermission when the file is kept from this process.
[[nodiscard]] Descriptor open_lock_file(const std::string& path, LockPurpose purpose);

}  // namespace kx::ctl
