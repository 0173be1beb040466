// Kernel module files as small as they can be: an ELF object with a .modinfo section.
#pragma once

#include <kxsim/host.hpp>

#include <string>

namespace kxsim {

// The object's bytes, in the class and byte order that the module asks for.
[[nodiscard]] std::string module_object(const Module& module);

// A gzip file that holds some bytes.
[[nodiscard]] std::string gzip(const std::string& bytes);

}  // namespace kxsim
