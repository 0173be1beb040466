// The three standard descriptors of the process.
#pragma once

#include <string_view>

namespace kx::ctl {

// Make writing safe: a closed reader does not interrupt an operation (writes fail instead), and a
// file that the library opens never becomes a standard descriptor that the caller had closed;
// output would otherwise be written into /dev/mem.
void prepare_standard_streams();

// Undo the changes that a program started in place of kxctl would inherit.
void restore_signal_defaults();

// "kxctl: LINE" on standard error. Control characters in the line are replaced.
void complain(std::string_view line);

}  // namespace kx::ctl
