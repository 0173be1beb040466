// The private library libkxlinhw-machines.so, which lies beside this one: the work on descriptions
// that takes Xerces, and by its own dependencies libvirt. Hosts without machines never load it.
#pragma once

namespace kx::machines {
class Documents;
}

namespace kx::vm {

// What the private library does; null when it, libvirt or Xerces cannot be loaded. A failure is
// tried again by the next call.
[[nodiscard]] const machines::Documents* documents();

// A name of the private library or of what it is linked with; null when there is none.
[[nodiscard]] void* find_in_optional_library(const char* name);

}  // namespace kx::vm
