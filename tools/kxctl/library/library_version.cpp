#include "library/library_version.hpp"

#include <fmt/core.h>
#include <kxlinhw/status.h>

#include "failure/failure.hpp"
#include "library/call.hpp"

namespace kx::ctl {

std::string LibraryVersion::text() const {
    return fmt::format("{}.{}", word >> 16U, word & 0xFFFFU);
}

LibraryVersion query_version() {
    LibraryVersion version{};
    check(call_library([&] { return GetLibVersion(&version); }));
    return version;
}

}  // namespace kx::ctl
