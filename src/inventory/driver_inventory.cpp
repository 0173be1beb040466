// The inventory of the maker's driver modules: version, description and loaded state of each.
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "settings/module_search.hpp"
#include "support/call_snapshot.hpp"
#include "support/handle.hpp"
#include "support/text.hpp"

namespace {

struct KnownDriver {
    const char* module;
    uint32_t (*is_loaded)();
    uint32_t required;  // when set, a module without a file fails the whole inventory
};

constexpr KnownDriver kKnownDriverTable[] = {
    {"zfab3", isZfab3Loaded, 0},
    {"zfab4", isZfab4Loaded, 0},
    {"zfab3m", isZfab3Loaded, 0},  // the management variant of zfab3 uses the same check
    {"toecore", isTOELoaded, 0},
    {"q3_tom", isq3TOELoaded, 0},
    {"q4_tom", isq4TOELoaded, 0},
    {"bonding", isBondingLoaded, 0},
    {"kxiscsi_base", isIscsiLoaded, 0},
    {"kxiscsi_q4", isIscsiQ4Loaded, 0},
    {"kxiscsi_q3", isIscsiQ3Loaded, 0},
    {"iw_zfab3", isOffedLoaded, 0},
    {"iw_zfab4", isq4OffedLoaded, 0},
    {"kxstor", isFCOELoaded, 0},
    {nullptr, nullptr, 0},
};

// The names that getModinfo will be called with.
constexpr auto kKnownModules = [] {
    std::array<std::string_view, std::size(kKnownDriverTable) - 1> names;
    std::transform(
        std::begin(kKnownDriverTable), std::end(kKnownDriverTable) - 1, names.begin(),
        [](const KnownDriver& driver) { return driver.module; });
    return names;
}();
static_assert(kKnownModules.size() <= kx::settings::ModuleAnnouncement::kMost);

// The size that getModinfo requires, and one byte more: a version that fills its 255 bytes has no
// NUL.
using InfoText = std::array<char, 256>;

DriverEntry* make_entry(
    const KnownDriver& driver, const InfoText& version, const InfoText& description) {
    kx::Block<DriverEntry> entry = kx::allocate_record<DriverEntry>();
    if (entry) {
        kx::copy_text(entry->module, driver.module);
        kx::copy_text(entry->unused, "N/A");
        kx::copy_text(entry->version, version.data());
        kx::copy_text(entry->description, description.data());
        entry->loaded = static_cast<uint8_t>(driver.is_loaded());
    }
    return entry.release();
}

// The row's entry, or null when the module has no file or memory runs out.
DriverEntry* inspect(const KnownDriver& driver) {
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
    const kx::SnapshotScope scope;
    const kx::settings::ModuleAnnouncement announcement(kKnownModules);
    if (*slot != nullptr) {
        freelist(*slot);
        *slot = nullptr;
    }
    DriverEntry* last = nullptr;
    for (const KnownDriver* driver = kKnownDriverTable; driver->module != nullptr; ++driver) {
        DriverEntry* const entry = inspect(*driver);
        if (entry == nullptr) {
            if (driver->required != 0) {
                *slot = nullptr;
                return KX_DRIVER_NOT_LOADED;
            }
            continue;
        }
        if (last == nullptr) {
            *slot = entry;
        } else {
            last->next = entry;
        }
        last = entry;
    }
    return last == nullptr ? KX_DRIVER_NOT_LOADED : KX_SUCCESS;
}

void freelist(DriverEntry* first) {
    while (first != nullptr) {
        const kx::Block<DriverEntry> entry(first);
        first = entry->next;
    }
}

}  // extern "C"
