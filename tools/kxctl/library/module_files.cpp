#include "library/module_files.hpp"

#include <dlfcn.h>
#include <fmt/core.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>
#include <libkmod.h>
#include <sys/mman.h>
#include <sys/utsname.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "failure/failure.hpp"
#include "files/descriptor.hpp"
#include "library/call.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kGzip = ".ko.gz";

// The maker's modules, as the library lists them.
constexpr std::array<std::string_view, 13> kMakersModules = {
    "zfab3",        "zfab4",      "zfab3m",     "toecore",  "q3_tom",   "q4_tom", "bonding",
    "kxiscsi_base", "kxiscsi_q4", "kxiscsi_q3", "iw_zfab3", "iw_zfab4", "kxstor",
};

// libkmod, loaded at its first use: it brings decompressors that no other command needs.
class Kmod {
public:
    static const Kmod& get() {
        static const Kmod library;
        return library;
    }

    // Call with each key and value of a module file; not at all when it cannot be read.
    template <class Function>
    void for_each_text(const std::string& path, Function function) const {
        if (!loaded_) {
            return;
        }
        constexpr const char* kNoConfiguration[] = {nullptr};
        const std::unique_ptr<kmod_ctx, decltype(&kmod_unref)> context(
            create_("/", kNoConfiguration), unref_);
        kmod_module* found = nullptr;
        if (!context || module_of_(context.get(), path.c_str(), &found) < 0) {
            return;
        }
        const std::unique_ptr<kmod_module, decltype(&kmod_module_unref)> module(
            found, module_unref_);
        kmod_list* texts = nullptr;
        if (info_(module.get(), &texts) < 0) {
            return;
        }
        for (kmod_list* text = texts; text != nullptr; text = next_(texts, text)) {
            function(std::string_view(key_(text)), value_(text));
        }
        free_info_(texts);
    }

private:
    Kmod() : handle_(dlopen("libkmod.so.2", RTLD_NOW | RTLD_LOCAL)) {
        loaded_ = handle_ != nullptr && load(create_, "kmod_new") && load(unref_, "kmod_unref") &&
                  load(module_of_, "kmod_module_new_from_path") &&
                  load(module_unref_, "kmod_module_unref") && load(info_, "kmod_module_get_info") &&
                  load(next_, "kmod_list_next") && load(key_, "kmod_module_info_get_key") &&
                  load(value_, "kmod_module_info_get_value") &&
                  load(free_info_, "kmod_module_info_free_list");
    }

    template <class Function>
    bool load(Function*& function, const char* name) {
        function = reinterpret_cast<Function*>(dlsym(handle_, name));
        return function != nullptr;
    }

    void* handle_;
    bool loaded_ = false;
    decltype(kmod_new)* create_ = nullptr;
    decltype(kmod_unref)* unref_ = nullptr;
    decltype(kmod_module_new_from_path)* module_of_ = nullptr;
    decltype(kmod_module_unref)* module_unref_ = nullptr;
    decltype(kmod_module_get_info)* info_ = nullptr;
    decltype(kmod_list_next)* next_ = nullptr;
    decltype(kmod_module_info_get_key)* key_ = nullptr;
    decltype(kmod_module_info_get_value)* value_ = nullptr;
    decltype(kmod_module_info_free_list)* free_info_ = nullptr;
};

std::string with_underscores(std::string_view name) {
    std::string text(name);
    std::ranges::replace(text, '-', '_');
    return text;
}

struct CompressedFile {
    std::string module;
    std::string ending;
    std::string path;
};

// The compressed files of the maker's modules for the running kernel, the first of each module.
std::vector<CompressedFile> compressed_files() {
    utsname kernel{};
    if (uname(&kernel) != 0) {
        return {};
    }
    const HostWatch watch;
    std::vector<CompressedFile> files;
    std::error_code error;
    fs::recursive_directory_iterator entry(
        fs::path("/lib/modules") / kernel.release, fs::directory_options::skip_permission_denied,
        error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        const std::string file = entry->path().filename();
        const CompressedName name = compressed_name(file);
        const std::string module = with_underscores(name.module);
        if (std::ranges::find(kMakersModules, module) != kMakersModules.end() &&
            std::ranges::find(files, module, &CompressedFile::module) == files.end()) {
            files.push_back({module, std::string(name.ending), entry->path()});
        }
    }
    return files;
}

template <std::size_t N>
void put_text(char (&field)[N], std::string_view text) {
    std::memset(field, 0, N);
    std::copy_n(text.begin(), std::min(text.size(), N - 1), field);
}

// A file with the decompressed content of a gzip file; no descriptor when it is damaged or unlikely
// large.
Descriptor decompressed(const std::string& path) {
    constexpr std::size_t kMostBytes = std::size_t{256} << 20U;
    Descriptor copy(memfd_create("module", MFD_CLOEXEC));
    const std::unique_ptr<gzFile_s, decltype(&gzclose)> file(gzopen(path.c_str(), "rbe"), gzclose);
    std::array<char, 65536> chunk;
    std::size_t bytes = 0;
    int got = file ? 1 : -1;
    while (got > 0 && copy && bytes <= kMostBytes) {
        got = gzread(file.get(), chunk.data(), chunk.size());
        const std::size_t size = got > 0 ? static_cast<std::size_t>(got) : 0;
        bytes += size;
        if (write_text(copy.get(), {chunk.data(), size}) != 0) {
            return {};
        }
    }
    return got == 0 ? std::move(copy) : Descriptor();
}

// libkmod of many distributions reads no gzip files. The library reads any file by its path.
void read_gzip_texts(const std::string& path, DriverEntry& entry) {
    const Descriptor copy = decompressed(path);
    std::string copy_path = fmt::format("/proc/self/fd/{}", copy.get());
    std::array<char, 256> version{};
    std::array<char, 256> description{};
    if (copy && getModinfo(copy_path.data(), version.data(), description.data()) == KX_SUCCESS) {
        put_text(entry.version, version.data());
        put_text(entry.description, description.data());
    }
}

void read_texts(const CompressedFile& file, DriverEntry& entry) {
    const LibraryCall call;  // libkmod prints what is wrong with a file
    if (file.ending == kGzip) {
        read_gzip_texts(file.path, entry);
        return;
    }
    Kmod::get().for_each_text(file.path, [&](std::string_view key, const char* value) {
        if (key == "version") {
            put_text(entry.version, value);
        } else if (key == "description") {
            put_text(entry.description, value);
        }
    });
}

// As the library tells it: 1, 0, or the status of an unreadable list.
std::uint8_t loaded_state(std::string_view module) {
    const HostWatch watch;
    std::ifstream list("/proc/modules");
    if (!list) {
        return KX_RESOURCE_UNAVAILABLE;
    }
    for (std::string line; std::getline(list, line);) {
        if (std::string_view(line).substr(0, line.find(' ')) == module) {
            return 1;
        }
    }
    return 0;
}

InstalledModule module_in(const CompressedFile& file) {
    InstalledModule module{.entry = {}, .compressed = file.ending, .listed_by_library = false};
    put_text(module.entry.module, file.module);
    module.entry.loaded = loaded_state(file.module);
    read_texts(file, module.entry);
    return module;
}

}  // namespace

CompressedName compressed_name(std::string_view file) {
    for (const std::string_view ending :
         {std::string_view(".ko.xz"), std::string_view(".ko.zst"), kGzip}) {
        if (file.ends_with(ending)) {
            return {file.substr(0, file.size() - ending.size()), ending};
        }
    }
    return {};
}

std::vector<InstalledModule> query_installed_modules() {
    std::vector<InstalledModule> modules;
    std::optional<Failure> failure;
    try {
        for (const DriverEntry& entry : query_modules()) {
            modules.push_back({entry});
        }
    } catch (const Failure& none) {
        if (none.status() != KX_DRIVER_NOT_LOADED) {
            throw;
        }
        failure = none;
    }
    for (const CompressedFile& file : compressed_files()) {
        const auto known = std::ranges::find_if(modules, [&](const InstalledModule& module) {
            return field_text(module.entry.module) == file.module;
        });
        if (known == modules.end()) {
            modules.push_back(module_in(file));
        } else if (
            field_text(known->entry.version).empty() &&
            field_text(known->entry.description).empty()) {
            known->compressed = file.ending;
            read_texts(file, known->entry);
        }
    }
    if (modules.empty() && failure) {
        throw Failure(*failure);
    }
    return modules;
}

}  // namespace kx::ctl
