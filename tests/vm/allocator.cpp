#include "vm/allocator.hpp"

#include <dlfcn.h>
#include <kxlinhw/kxlinhw.h>
#include <link.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

// The real ones: of the sanitizer where there is one.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void __libc_free(void* block);
__attribute__((weak)) void* __interceptor_malloc(std::size_t size);
__attribute__((weak)) void* __interceptor_calloc(std::size_t count, std::size_t size);
__attribute__((weak)) void __interceptor_free(void* block);
}

namespace {

// A set of addresses that allocates nothing.
class AddressSet {
public:
    void insert(const void* address) {
        for (std::size_t k = home(address);; k = next(k)) {
            if (slots_[k] == nullptr || slots_[k] == kGone) {
                slots_[k] = address;
                ++size_;
                return;
            }
        }
    }
    bool erase(const void* address) {
        for (std::size_t k = home(address); slots_[k] != nullptr; k = next(k)) {
            if (slots_[k] == address) {
                slots_[k] = kGone;
                --size_;
                return true;
            }
        }
        return false;
    }
    bool contains(const void* address) const {
        for (std::size_t k = home(address); slots_[k] != nullptr; k = next(k)) {
            if (slots_[k] == address) {
                return true;
            }
        }
        return false;
    }
    std::size_t size() const { return size_; }
    template <class Take>
    void take_all(Take take) {
        for (const void*& slot : slots_) {
            if (slot != nullptr && slot != kGone) {
                const void* const address = slot;
                slot = kGone;
                --size_;
                take(const_cast<void*>(address));
            }
        }
        std::memset(slots_, 0, sizeof slots_);
    }

private:
    static constexpr std::size_t kSlots = std::size_t{1} << 18;
    static inline const char kGoneByte = 0;
    static inline const void* const kGone = &kGoneByte;

    static std::size_t home(const void* address) {
        return (reinterpret_cast<std::uintptr_t>(address) >> 4) * 0x9E3779B97F4A7C15U >> 46;
    }
    static std::size_t next(std::size_t k) { return (k + 1) % kSlots; }

    const void* slots_[kSlots] = {};
    std::size_t size_ = 0;
};

AddressSet library_set;
AddressSet watched_set;
int countdown = 0;

struct Range {
    std::uintptr_t first = 0;
    std::uintptr_t end = 0;
};

// The address range of the library's code.
Range library_code() {
    Range range{reinterpret_cast<std::uintptr_t>(dlsym(RTLD_DEFAULT, "GetLibVersion")), 0};
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* data) {
            auto& wanted = *static_cast<Range*>(data);
            for (int k = 0; k < info->dlpi_phnum; ++k) {
                const auto& header = info->dlpi_phdr[k];
                const std::uintptr_t first = info->dlpi_addr + header.p_vaddr;
                if (header.p_type == PT_LOAD && wanted.first >= first &&
                    wanted.first < first + header.p_memsz) {
                    wanted = {first, first + header.p_memsz};
                    return 1;
                }
            }
            return 0;
        },
        &range);
    return range;
}

Range library;  // unknown, and so empty, while the program starts
const bool kLibraryFound = [] {
    library = library_code();
    return true;
}();

bool is_library(const void* caller) {
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    return address >= library.first && address < library.end;
}

bool shall_fail() { return countdown > 0 && --countdown == 0; }

void* note(void* block) {
    if (block != nullptr) {
        library_set.insert(block);
    }
    return block;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    const bool ours = is_library(__builtin_return_address(0));
    if (ours && shall_fail()) {
        return nullptr;
    }
    void* const block = __interceptor_malloc ? __interceptor_malloc(size) : __libc_malloc(size);
    return ours ? note(block) : block;
}

void* calloc(std::size_t count, std::size_t size) {
    const bool ours = is_library(__builtin_return_address(0));
    if (ours && shall_fail()) {
        return nullptr;
    }
    void* const block =
        __interceptor_calloc ? __interceptor_calloc(count, size) : __libc_calloc(count, size);
    return ours ? note(block) : block;
}

void free(void* block) {
    if (block != nullptr) {
        library_set.erase(block);
        watched_set.erase(block);
    }
    __interceptor_free ? __interceptor_free(block) : __libc_free(block);
}

}  // extern "C"

namespace test {

std::size_t library_blocks() { return library_set.size(); }

void free_library_blocks() {
    library_set.take_all([](void* block) { free(block); });
}

void fail_library_allocation(int n) { countdown = n; }

void watch(void* block) { watched_set.insert(block); }

bool is_watched(const void* block) { return watched_set.contains(block); }

}  // namespace test
