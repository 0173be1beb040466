// Minimal kernel module files: an ELF object with a .modinfo section.
#pragma once

#include <kxsim/host.hpp>

#include <string>

namespace kxsim {

// The object's bytes, in the class and byte order of the module.
[[nodiscard]] std::string module_object(const Module& module);

// A gzip file of these bytes.
[[nodiscard]] std::string gzip(const std::string& bytes);

}  // namespace kxsim
