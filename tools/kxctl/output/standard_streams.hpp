// The three standard descriptors of the process.
#pragma once

#include <string_view>

namespace kx::ctl {

// Make the process safe to write in: a reader that goes away ends no operation half done (writes
// fail instead), and a standard descriptor that the caller closed is never taken by a file that the
// library opens - /dev/mem as standard output would be written into.
void prepare_standard_streams();

// What a program started in place of kxctl should find: undoes the part that it would inherit.
void restore_signal_defaults();

// "kxctl: LINE" on standard error. Control characters in the line are replaced.
void complain(std::string_view line);

}  // namespace kx::ctl
