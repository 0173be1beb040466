#include "modules/module_search.hpp"

#include <dirent.h>
#include <kxlinhw/modules.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <optional>
#include <string>

#include "modules/paths.hpp"
#include "support/handle.hpp"
#include "support/small_file.hpp"

namespace kx::modules {
namespace {

bool same_module_name(std::string_view name, std::string_view module) {
    const auto fold = [](char c) { return c == '-' ? '_' : c; };
    return std::equal(
        name.begin(), name.end(), module.begin(), module.end(),
        [fold](char a, char b) { return fold(a) == fold(b); });
}

// The name of the module whose file this is.
std::optional<std::string_view> module_of_file(std::string_view file) {
    for (const std::string_view ending : {".ko", ".ko.gz"}) {
        if (file.ends_with(ending)) {
            return file.substr(0, file.size() - ending.size());
        }
    }
    return std::nullopt;
}

// Links to directories are not followed.
bool is_directory(const dirent& entry, const std::string& path) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// One walk of a tree for several modules; each module has a bit.
class Walk {
public:
    Walk(std::string root, std::span<const std::string_view> names, std::span<MappedFile> files)
        : path_(std::move(root)), names_(names), files_(files) {}

    // Depth first, in the order of the directory's entries. For each module a match ends the search
    // of its directory, whether or not the file can be mapped; when it cannot be mapped, the search
    // of the parent continues. Returns the modules whose files are mapped now.
    uint32_t search(uint32_t wanted) {
        const Directory directory = open_directory(path_.c_str());
        uint32_t found = 0;
        const std::size_t length = path_.size();
        while (const dirent* entry =
                   directory && wanted != 0 ? readdir(directory.get()) : nullptr) {
            const std::string_view name = entry->d_name;
            const uint32_t matches = matching(name, wanted);
            wanted &= ~matches;
            const bool may_enter = wanted != 0 && name != "." && name != ".." && may_hold(*entry);
            if (matches == 0 && !may_enter) {
                continue;
            }
            path_.append("/").append(name);
            found |= map(matches);
            if (may_enter && is_directory(*entry, path_)) {
                const uint32_t below = search(wanted);
                found |= below;
                wanted &= ~below;
            }
            path_.resize(length);
        }
        return found;
    }

private:
    static bool may_hold(const dirent& entry) {
        return entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN;
    }

    [[nodiscard]] uint32_t matching(std::string_view file, uint32_t wanted) const {
        const auto module = module_of_file(file);
        uint32_t matches = 0;
        for (uint32_t rest = module ? wanted : 0; rest != 0; rest &= rest - 1) {
            const auto index = static_cast<std::size_t>(std::countr_zero(rest));
            if (same_module_name(names_[index], *module)) {
                matches |= uint32_t{1} << index;
            }
        }
        return matches;
    }

    uint32_t map(uint32_t modules) {
        uint32_t mapped = 0;
        for (uint32_t rest = modules; rest != 0; rest &= rest - 1) {
            const auto index = static_cast<std::size_t>(std::countr_zero(rest));
            files_[index] = MappedFile(path_.c_str());
            mapped |= files_[index] ? uint32_t{1} << index : 0;
        }
        return mapped;
    }

    std::string path_;
    std::span<const std::string_view> names_;
    std::span<MappedFile> files_;
};

// Look for the wanted modules in the part of the running kernel's tree that modfound selects.
void search_tree(
    std::span<const std::string_view> names, std::span<MappedFile> files, uint32_t wanted) {
    utsname kernel{};
    if (uname(&kernel) != 0) {
        return;
    }
    std::string directory = std::string(kModuleTree) + "/" + kernel.release;
    if (modfound == 1) {
        directory.append("/").append(kUpdates);
        if (!path_exists(directory.c_str())) {
            return;
        }
    }
    Walk walk(std::move(directory), names, files);
    walk.search(wanted);
}

}  // namespace

MappedFile::MappedFile(const char* path) : address_(grab_file(path, &length_)) {}

MappedFile::~MappedFile() {
    if (address_ != nullptr) {
        release_file(address_, length_);
    }
}

ModuleAnnouncement::ModuleAnnouncement(std::span<const std::string_view> names)
    : count_(std::min(names.size(), kMost)), waiting_((uint32_t{1} << count_) - 1) {
    std::copy_n(names.begin(), count_, names_.begin());
    current_ = this;
}

ModuleAnnouncement::~ModuleAnnouncement() { current_ = nullptr; }

// The file of a name in the part of the tree that modfound selects. The first search also finds the
// files of the other announced names.
MappedFile ModuleAnnouncement::take(std::size_t index) {
    bool& walked = walked_[modfound == 1 ? 1 : 0];
    if (!files_[index] && !walked) {
        uint32_t wanted = waiting_;
        for (std::size_t i = 0; i < count_; ++i) {
            wanted &= files_[i] ? ~(uint32_t{1} << i) : ~uint32_t{0};
        }
        search_tree(names_, files_, wanted);
        walked = true;
    }
    if (modfound != 1 || files_[index]) {
        waiting_ &= ~(uint32_t{1} << index);
    }
    return std::move(files_[index]);
}

// When a name cannot be opened as a path for another reason than a missing file, it is not
// searched.
MappedFile locate_module(const char* module) {
    if (MappedFile file(module); file || errno != ENOENT) {
        return file;
    }
    const std::string_view name = module;
    if (ModuleAnnouncement* const announcement = ModuleAnnouncement::current_) {
        const auto end =
            announcement->names_.begin() + static_cast<std::ptrdiff_t>(announcement->count_);
        const auto place = std::find(announcement->names_.begin(), end, name);
        const auto index = static_cast<std::size_t>(place - announcement->names_.begin());
        if (place != end && (announcement->waiting_ >> index & 1) != 0) {
            return announcement->take(index);
        }
    }
    MappedFile file;
    search_tree({&name, 1}, {&file, 1}, 1);
    return file;
}

}  // namespace kx::modules
