// The inventory of the maker's driver modules: version, description and loaded state of each.
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "modules/module_search.hpp"
#include "support/cached_reading.hpp"
#include "support/chain.hpp"
#include "support/handle.hpp"
#include "support/text.hpp"

namespace {

struct KnownDriver {
    const char* module;
    uint32_t (*is_loaded)();
};

constexpr KnownDriver kKnownDrivers[] = {
    {"zfab3", isZfab3Loaded},        {"zfab4", isZfab4Loaded},
    {"zfab3m", isZfab3Loaded},  // the management variant of zfab3 uses the same check
    {"toecore", isTOELoaded},        {"q3_tom", isq3TOELoaded},
    {"q4_tom", isq4TOELoaded},       {"bonding", isBondingLoaded},
    {"kxiscsi_base", isIscsiLoaded}, {"kxiscsi_q4", isIscsiQ4Loaded},
    {"kxiscsi_q3", isIscsiQ3Loaded}, {"iw_zfab3", isOffedLoaded},
    {"iw_zfab4", isq4OffedLoaded},   {"kxstor", isFCOELoaded},
};

// The names that getModinfo will be called with.
constexpr auto kKnownModules = [] {
    std::array<std::string_view, std::size(kKnownDrivers)> names;
    std::transform(
        std::begin(kKnownDrivers), std::end(kKnownDrivers), names.begin(),
        [](const KnownDriver& driver) { return driver.module; });
    return names;
}();
static_assert(kKnownModules.size() <= kx::modules::ModuleAnnouncement::kMost);

// The size that getModinfo requires, and one byte more: a version that fills its 255 bytes has no
// NUL.
using InfoText = std::array<char, 256>;

kx::Block<DriverEntry> make_entry(
    const KnownDriver& driver, const InfoText& version, const InfoText& description) {
    kx::Block<DriverEntry> entry = kx::allocate_record<DriverEntry>();
    if (entry) {
        kx::copy_text(entry->module, driver.module);
        kx::copy_text(entry->unused, "N/A");
        kx::copy_text(entry->version, version.data());
        kx::copy_text(entry->description, description.data());
        entry->loaded = static_cast<uint8_t>(driver.is_loaded());
    }
    return entry;
}

// The row's entry, or null when the module has no file or memory runs out.
kx::Block<DriverEntry> inspect(const KnownDriver& driver) {
    InfoText version{};
    InfoText description{};
    char name[32];
    kx::copy_text(name, driver.module);
    if (getModinfo(name, version.data(), description.data()) != KX_SUCCESS) {
        return nullptr;
    }
    return make_entry(driver, version, description);
}

}  // namespace

extern "C" {

uint32_t getDriverInfo(KxDriverEntryPtr* slot) {
    if (slot == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const kx::CachedReadingScope scope;
    const kx::modules::ModuleAnnouncement announcement(kKnownModules);
    if (*slot != nullptr) {
        freelist(*slot);
        *slot = nullptr;
    }
    kx::Chain<DriverEntry> entries;
    for (const KnownDriver& driver : kKnownDrivers) {
        entries.append(inspect(driver));
    }
    *slot = entries.release();
    return *slot == nullptr ? KX_DRIVER_NOT_LOADED : KX_SUCCESS;
}

void freelist(DriverEntry* first) { kx::free_chain(first); }

}  // extern "C"
