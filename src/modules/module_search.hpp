// Finding the files of kernel modules for the running kernel.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

namespace kx::modules {

// A file that grab_file mapped; unmapped with the object.
class MappedFile {
public:
    MappedFile() = default;
    explicit MappedFile(const char* path);
    MappedFile(MappedFile&& other) noexcept
        : length_(other.length_), address_(std::exchange(other.address_, nullptr)) {}
    MappedFile& operator=(MappedFile&& other) noexcept {
        std::swap(address_, other.address_);
        std::swap(length_, other.length_);
        return *this;
    }
    ~MappedFile();

    explicit operator bool() const { return address_ != nullptr; }
    [[nodiscard]] std::span<const std::byte> bytes() const {
        return {static_cast<const std::byte*>(address_), length_};
    }

private:
    std::size_t length_ = 0;
    void* address_ = nullptr;
};

// The file of a module: the name itself as a path, or the result of a search in the part of the
// module tree that modfound selects.
[[nodiscard]] MappedFile locate_module(const char* module);

// The names for which getModinfo will be called while this object exists. The first search walks
// the tree for all names that are still wanted, each by its own rules; later searches use its
// results. Only one such object at a time.
class ModuleAnnouncement {
public:
    static constexpr std::size_t kMost = 16;

    explicit ModuleAnnouncement(std::span<const std::string_view> names);
    ~ModuleAnnouncement();
    ModuleAnnouncement(const ModuleAnnouncement&) = delete;
    ModuleAnnouncement& operator=(const ModuleAnnouncement&) = delete;

private:
    friend MappedFile locate_module(const char* module);
    MappedFile take(std::size_t index);

    std::array<std::string_view, kMost> names_{};
    std::array<MappedFile, kMost> files_;
    std::size_t count_;
    uint32_t waiting_;              // a bit for each name that was not requested yet
    std::array<bool, 2> walked_{};  // by modfound
    static inline ModuleAnnouncement* current_ = nullptr;
};

}  // namespace kx::modules
