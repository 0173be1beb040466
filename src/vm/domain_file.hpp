// A domain's description in a file of the working directory.
#pragma once

#include <string_view>

namespace kx::vm {

// The line before every description that the library passes on.
inline constexpr std::string_view kDeclaration =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";

// In the working directory; every listing overwrites it and leaves it there.
inline constexpr char kDomainFile[] = "domain.xml";

// Write a description to kDomainFile, behind the declaration. False when not all of it is there:
// the file may then hold another domain's description and must not be read. Only a regular file is
// written, and no link is followed to it.
[[nodiscard]] bool write_domain_file(const char* description);

}  // namespace kx::vm
