// Which kernel modules are loaded, according to /proc/modules.
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>

#include <new>
#include <optional>
#include <string>

#include "modules/module_list.hpp"
#include "modules/paths.hpp"
#include "support/cached_reading.hpp"
#include "support/small_file.hpp"
#include "support/text.hpp"

namespace {

// A line is read in pieces of this many characters, and each piece is compared separately.
constexpr std::size_t kLongestPiece = 63;

kx::CachedReading<std::optional<std::string>> loaded_modules;

uint32_t check_directory_or_list(const char* directory, const char* module) {
    return kx::path_exists(directory) ? 1 : lsmod(module);
}

}  // namespace

bool kx::modules::no_ethernet_driver_loaded() {
    return isZfab3Loaded() == 0 && isZfab4Loaded() == 0;
}

extern "C" {

uint32_t lsmod(const char* name) try {
    if (name == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const auto& list =
        loaded_modules.get([] { return kx::read_file(kx::modules::kLoadedModules); });
    if (!list) {
        return KX_RESOURCE_UNAVAILABLE;
    }
    kx::LinePieces pieces(*list, kLongestPiece);
    while (const auto piece = pieces.next()) {
        if (kx::c_text(*piece).starts_with(name)) {
            return 1;
        }
    }
    return 0;
} catch (const std::bad_alloc&) {
    return KX_RESOURCE_UNAVAILABLE;
}

// For callers that test for a value other than 0, an unreadable list (63) counts as a loaded
// module.
uint32_t isFCOELoaded(void) { return lsmod("kxstor"); }
uint32_t isOffedLoaded(void) { return lsmod("iw_zfab3"); }
uint32_t isq4OffedLoaded(void) { return lsmod("iw_zfab4"); }
uint32_t isIscsiQ3Loaded(void) { return lsmod("kxiscsi_q3"); }
uint32_t isIscsiQ4Loaded(void) { return lsmod("kxiscsi_q4"); }
uint32_t isIscsiLoaded(void) { return lsmod("kxiscsi_base"); }
uint32_t isTOELoaded(void) { return lsmod("toecore"); }
uint32_t isq4TOELoaded(void) { return lsmod("q4_tom"); }
uint32_t isq3TOELoaded(void) { return lsmod("q3_tom"); }
uint32_t isZfab4Loaded(void) { return lsmod("zfab4"); }
uint32_t isBondingLoaded(void) { return check_directory_or_list(kx::modules::kBonding, "bonding"); }
uint32_t isZfab3Loaded(void) { return check_directory_or_list(kx::modules::kZfab3, "zfab3"); }

}  // extern "C"
