// Recording applied settings: port settings in a file of the library, offload settings in the
// host's sysctl configuration. The two differ in the rule by which a line belongs to a setting.
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

#include "settings/config_file.hpp"
#include "settings/paths.hpp"

namespace kx::settings {
namespace {

constexpr int kSaved = 0;
constexpr int kNotSaved = 1;
constexpr std::size_t kLongestSearchKey =
    31;  // agents rely on this: a longer key matches by its first characters
constexpr std::size_t kSysctlKeySize = 256;

// The key may be anywhere in the line: eth1.mtu is also found in veth1.mtu and in a comment.
LineTest holds(std::string_view key) {
    return [key](std::string_view line) { return line.find(key) != line.npos; };
}

// The key must be at the start of the line and end there, so that max_wr is not found in
// max_wr_credits.
LineTest begins_with(std::string_view key) {
    return [key](std::string_view line) {
        return line.starts_with(key) && line.size() > key.size() &&
               (line[key.size()] == ' ' || line[key.size()] == '=');
    };
}

}  // namespace
}  // namespace kx::settings

extern "C" {

int savePortParam(const char* key, const char* interface_name, uint32_t, int value) try {
    using namespace kx::settings;
    if (key == nullptr || interface_name == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const std::string name = std::string(interface_name) + "." + key;
    const std::string search_key = name.substr(0, kLongestSearchKey);
    const std::string line = name + " = " + std::to_string(value) + "\n";
    switch (append_unless_present(kPortParameterFile, line, holds(search_key))) {
        case Saving::kAppended:
            return kSaved;
        case Saving::kPresent:
            return replacePortConfLine(kPortParameterFile, line.c_str(), search_key.c_str());
        case Saving::kUnopened:
            std::puts("not able to open conf file");
            return kNotSaved;
        case Saving::kFailed:
        default:
            return kNotSaved;
    }
} catch (const std::bad_alloc&) {
    return kx::settings::kNotSaved;
}

int replacePortConfLine(const char* path, const char* newLine, const char* searchKey) try {
    using namespace kx::settings;
    if (path == nullptr || newLine == nullptr || searchKey == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    std::printf("new_line %s\n", newLine);
    return replace_lines(path, newLine, holds(searchKey)) ? kSaved : kNotSaved;
} catch (const std::bad_alloc&) {
    return kx::settings::kNotSaved;
}

int sysctlPathToKey(const char* path, char* key, int size) {
    using namespace kx::settings;
    if (path == nullptr || key == nullptr || size <= 0) {
        return kNotSaved;
    }
    std::string_view name = path;
    if (name.starts_with(kKernelSettings)) {
        name.remove_prefix(std::string_view(kKernelSettings).size());
    }
    const std::size_t room = static_cast<std::size_t>(size) - 1;
    const std::size_t length = std::min(name.size(), room);
    std::replace_copy(
        name.begin(), name.begin() + static_cast<std::ptrdiff_t>(length), key, '/', '.');
    key[length] = '\0';
    return length == name.size() ? kSaved : kNotSaved;
}

int saveSysctlParam(const char* path, int64_t value) try {
    using namespace kx::settings;
    std::array<char, kSysctlKeySize> key;
    if (sysctlPathToKey(path, key.data(), static_cast<int>(key.size())) != 0) {
        return kNotSaved;
    }
    const std::string_view name = key.data();
    const std::string line = std::string(name) + " = " + std::to_string(value) + "\n";
    switch (append_unless_present(kSysctlFile, line, begins_with(name))) {
        case Saving::kAppended:
            return kSaved;
        case Saving::kPresent:
            return replaceSysctlLine(
                kSysctlFile, key.data(), line.c_str(), static_cast<int>(name.size()));
        case Saving::kUnopened:
        case Saving::kFailed:
        default:
            return kNotSaved;
    }
} catch (const std::bad_alloc&) {
    return kx::settings::kNotSaved;
}

int replaceSysctlLine(const char* file, const char* key, const char* newLine, int keyLength) try {
    using namespace kx::settings;
    if (file == nullptr || key == nullptr || newLine == nullptr || keyLength < 0) {
        return KX_INVALID_PARAMETER;
    }
    const std::string_view name =
        std::string_view(key).substr(0, static_cast<std::size_t>(keyLength));
    return replace_lines(file, newLine, begins_with(name)) ? kSaved : kNotSaved;
} catch (const std::bad_alloc&) {
    return kx::settings::kNotSaved;
}

}  // extern "C"
