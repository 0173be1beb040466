// The private library libkxlinhw-machines.so, in the directory of this one. It works on
// descriptions with Xerces, and depends on libvirt. Hosts without machines never load it.
#pragma once

namespace kx::machines {
class Documents;
}

namespace kx::vm {

// The functions of the private library; null when it, libvirt or Xerces cannot be loaded. After a
// failure the next call tries again.
[[nodiscard]] const machines::Documents* documents();

// A name of the private library or of what it is linked with; null when there is none.
[[nodiscard]] void* find_in_optional_library(const char* name);

}  // namespace kx::vm
