#include "preload/listing.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "preload/interception.hpp"
#include "preload/target.hpp"
#include "process/next.hpp"

namespace kxsim::preload {
namespace {

using state::Call;

// A listing is one block of pages: this head, its entries, and their order.
struct Listing {
    Listing* next;
    DIR* directory;
    std::size_t bytes;
    std::size_t count;
    std::size_t position;
    dirent64* entries;
    std::uint32_t* order;
};

constinit Listing* first_listing = nullptr;
constinit std::atomic_flag listings_in_use = ATOMIC_FLAG_INIT;

class ListingsLock {
public:
    ListingsLock() {
        while (listings_in_use.test_and_set(std::memory_order_acquire)) {
        }
    }
    ~ListingsLock() { listings_in_use.clear(std::memory_order_release); }
    ListingsLock(const ListingsLock&) = delete;
    ListingsLock& operator=(const ListingsLock&) = delete;
};

Listing* find(DIR* directory) {
    Listing* listing = first_listing;
    while (listing != nullptr && listing->directory != directory) {
        listing = listing->next;
    }
    return listing;
}

const dirent64* read_entry(DIR* directory) {
    return next<"readdir64", decltype(::readdir64)>()(directory);
}

std::size_t count_entries(DIR* directory) {
    std::size_t count = 0;
    while (read_entry(directory) != nullptr) {
        ++count;
    }
    next<"rewinddir", decltype(::rewinddir)>()(directory);
    return count;
}

Listing* make_listing(DIR* directory) {
    const std::size_t most = count_entries(directory);
    const std::size_t bytes = sizeof(Listing) + most * (sizeof(dirent64) + sizeof(std::uint32_t));
    void* const block = next<"mmap", decltype(::mmap)>()(
        nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) {
        return nullptr;
    }
    auto* const listing = static_cast<Listing*>(block);
    listing->directory = directory;
    listing->bytes = bytes;
    listing->entries = reinterpret_cast<dirent64*>(listing + 1);
    listing->order = reinterpret_cast<std::uint32_t*>(listing->entries + most);
    while (listing->count < most) {
        const dirent64* const entry = read_entry(directory);
        if (entry == nullptr) {
            break;
        }
        std::memcpy(&listing->entries[listing->count++], entry, entry->d_reclen);
    }
    return listing;
}

// The order of a listing's entries under construction: "." and "..", then the entries that the
// builder named in its order, then all others by name.
class Ordering {
public:
    explicit Ordering(Listing& listing) : listing_(listing) {
        for (std::uint32_t i = 0; i < listing.count; ++i) {
            listing.order[i] = i;
            listing.entries[i].d_off = kUnplaced;
        }
        std::sort(by_name_begin(), by_name_end(), [&](std::uint32_t a, std::uint32_t b) {
            return name(a) < name(b);
        });
    }

    void place(std::string_view wanted) {
        const std::uint32_t* const found = std::lower_bound(
            by_name_begin(), by_name_end(), wanted,
            [&](std::uint32_t i, std::string_view text) { return name(i) < text; });
        if (found != by_name_end() && name(*found) == wanted) {
            give_place(*found);
        }
    }

    void place_rest() {
        for (std::size_t i = 0; i < listing_.count; ++i) {
            give_place(listing_.order[i]);
        }
        std::sort(by_name_begin(), by_name_end(), [&](std::uint32_t a, std::uint32_t b) {
            return listing_.entries[a].d_off < listing_.entries[b].d_off;
        });
    }

private:
    static constexpr off64_t kUnplaced = 0;

    // Until the end the entries are sorted by name for the lookup; the position of an entry is
    // stored in its offset, where readers expect it.
    void give_place(std::uint32_t entry) {
        if (listing_.entries[entry].d_off == kUnplaced) {
            listing_.entries[entry].d_off = ++placed_;
        }
    }

    std::uint32_t* by_name_begin() { return listing_.order; }
    std::uint32_t* by_name_end() { return listing_.order + listing_.count; }
    std::string_view name(std::uint32_t i) const { return listing_.entries[i].d_name; }

    Listing& listing_;
    off64_t placed_ = 0;
};

// Give places in the order of the builder.
void place_listed(const Host& host, const PathText& path, Ordering& ordering) {
    const std::string_view directory = path.view() == "/" ? std::string_view() : path.view();
    const bool newest_first = directory == state::kNewestFirst;
    std::string_view lines = host.order->lines();
    while (!lines.empty()) {
        const std::string_view line =
            newest_first ? state::last_line(lines) : state::next_line(lines);
        const std::string_view name = state::name_in(directory, line);
        if (!name.empty()) {
            ordering.place(name);
        }
    }
}

void put_in_order(const Host& host, const PathText& path, Listing& listing) {
    Ordering ordering(listing);
    ordering.place(".");
    ordering.place("..");
    place_listed(host, path, ordering);
    ordering.place_rest();
    for (std::size_t i = 0; i < listing.count; ++i) {
        listing.entries[i].d_reclen = sizeof(dirent64);
        if (host.session->hide_entry_types != 0) {
            listing.entries[i].d_type = DT_UNKNOWN;
        }
    }
}

// The next entry of a directory whose order this file determines.
bool next_listed(DIR* directory, dirent64*& entry) {
    const ListingsLock lock;
    Listing* const listing = find(directory);
    if (listing == nullptr) {
        return false;
    }
    entry = listing->position < listing->count
                ? &listing->entries[listing->order[listing->position++]]
                : nullptr;
    return true;
}

void forget(DIR* directory) {
    const ListingsLock lock;
    for (Listing** link = &first_listing; *link != nullptr; link = &(*link)->next) {
        if ((*link)->directory == directory) {
            Listing* const listing = *link;
            *link = listing->next;
            ::munmap(listing, listing->bytes);
            return;
        }
    }
}

bool move_to(DIR* directory, long position) {
    const ListingsLock lock;
    Listing* const listing = find(directory);
    if (listing == nullptr) {
        return false;
    }
    const auto wanted = static_cast<std::size_t>(position);
    listing->position = wanted < listing->count ? wanted : listing->count;
    return true;
}

// readdir and readdir64 return the same record on 64-bit machines.
static_assert(sizeof(dirent) == sizeof(dirent64) && sizeof(off_t) == sizeof(off64_t));

template <FunctionName kName, class Function>
auto read_directory(DIR* directory) -> decltype(next<kName, Function>()(directory)) {
    using Entry = decltype(next<kName, Function>()(directory));
    if (host() != nullptr) {
        if (const int error = intercept_descriptor(Call::kReaddir, ::dirfd(directory));
            error != 0) {
            return refuse<Entry>(error);
        }
        if (dirent64* entry = nullptr; next_listed(directory, entry)) {
            return reinterpret_cast<Entry>(entry);
        }
    }
    return next<kName, Function>()(directory);
}

}  // namespace

DIR* listed(DIR* directory) {
    const Host* const on = host();
    PathText path;
    if (on == nullptr || directory == nullptr || !simulated_path(*on, ::dirfd(directory), path)) {
        return directory;
    }
    const KeepErrno keep;
    Listing* const listing = make_listing(directory);
    if (listing != nullptr) {
        put_in_order(*on, path, *listing);
        const ListingsLock lock;
        listing->next = first_listing;
        first_listing = listing;
    }
    return directory;
}

}  // namespace kxsim::preload

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face

extern "C" {

#pragma GCC visibility push(default)

dirent* readdir(DIR* directory) {
    return read_directory<"readdir", decltype(::readdir)>(directory);
}
dirent64* readdir64(DIR* directory) {
    return read_directory<"readdir64", decltype(::readdir64)>(directory);
}
void rewinddir(DIR* directory) noexcept {
    if (!move_to(directory, 0)) {
        next<"rewinddir", decltype(::rewinddir)>()(directory);
    }
}
void seekdir(DIR* directory, long position) noexcept {
    if (!move_to(directory, position)) {
        next<"seekdir", decltype(::seekdir)>()(directory, position);
    }
}
long telldir(DIR* directory) noexcept {
    {
        const ListingsLock lock;
        if (const Listing* const listing = find(directory); listing != nullptr) {
            return static_cast<long>(listing->position);
        }
    }
    return next<"telldir", decltype(::telldir)>()(directory);
}
int closedir(DIR* directory) {
    forget(directory);
    return next<"closedir", decltype(::closedir)>()(directory);
}

#pragma GCC visibility pop

}  // extern "C"
