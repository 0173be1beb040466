#include "failure/permission.hpp"

#include <fmt/core.h>
#include <linux/capability.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace kx::ctl {
namespace {

struct PrivilegeRow {
    Privilege privilege;
    unsigned capability;
    const char* name;
};

constexpr PrivilegeRow kPrivileges[] = {
    {Privilege::kOwnFiles, CAP_DAC_OVERRIDE, "CAP_DAC_OVERRIDE"},
    {Privilege::kNetworkAdmin, CAP_NET_ADMIN, "CAP_NET_ADMIN"},
    {Privilege::kRawAccess, CAP_SYS_RAWIO, "CAP_SYS_RAWIO"},
    {Privilege::kConfigSpace, CAP_SYS_ADMIN, "CAP_SYS_ADMIN"},
};

const PrivilegeRow& row_of(Privilege privilege) {
    return *std::ranges::find(kPrivileges, privilege, &PrivilegeRow::privilege);
}

bool has(const SecurityContext& context, unsigned capability) {
    return (context.capabilities >> capability & 1U) != 0;
}

// The effective capabilities that the kernel reports; all capabilities when it does not report
// them.
std::uint64_t effective_capabilities() {
    constexpr std::string_view kKey = "CapEff:\t";
    std::uint64_t bits = ~std::uint64_t{0};
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(kKey)) {
            std::from_chars(line.data() + kKey.size(), line.data() + line.size(), bits, 16);
        }
    }
    return bits;
}

// The files that common container managers create in their containers.
bool is_in_container() {
    constexpr std::array kMarks = {"/.dockerenv", "/run/.containerenv", "/run/systemd/container"};
    return std::ranges::any_of(kMarks, [](const char* path) { return access(path, F_OK) == 0; });
}

// Both may be true; a container alone is not an obstacle when it has all privileges.
std::string with_container(const std::string& text, const SecurityContext& context) {
    return context.container ? text + ", in a container" : text;
}

// The driver that is bound to a PCI function; empty when there is none.
std::string driver_of(const std::string& location) {
    std::error_code error;
    return std::filesystem::read_symlink("/sys/bus/pci/devices/" + location + "/driver", error)
        .filename();
}

}  // namespace

std::string lockdown_mode(const std::string& file) {
    const std::size_t begin = file.find('[');
    const std::size_t end = file.find(']', begin == file.npos ? 0 : begin);
    if (begin == file.npos || end == file.npos) {
        return "";
    }
    const std::string mode = file.substr(begin + 1, end - begin - 1);
    return mode == "none" ? "" : mode;
}

SecurityContext read_security_context() {
    std::string modes;
    std::ifstream file("/sys/kernel/security/lockdown");
    std::getline(file, modes);
    if (std::getenv("KXSIM_ROOT") != nullptr) {
        return {.lockdown = lockdown_mode(modes)};
    }
    return {
        .user = geteuid(),
        .capabilities = effective_capabilities(),
        .lockdown = lockdown_mode(modes),
        .container = is_in_container()};
}

std::optional<std::string> missing_privilege(Privilege privilege, const SecurityContext& context) {
    const PrivilegeRow& row = row_of(privilege);
    if (!has(context, row.capability)) {
        return with_container(
            context.user != 0 ? fmt::format("the user is not root and lacks {}", row.name)
                              : fmt::format("root lacks {} here", row.name),
            context);
    }
    if (privilege == Privilege::kRawAccess && !context.lockdown.empty()) {
        return fmt::format("the kernel is locked down ({})", context.lockdown);
    }
    return std::nullopt;
}

Failure failed_memory(const std::string& subject, int reason) {
    const SecurityContext context = read_security_context();
    std::string text = fmt::format("{}: /dev/mem: {}", subject, std::strerror(reason));
    if (reason == EBUSY) {
        return {ExitCode::kBusy, text};
    }
    if (reason == ENOENT || reason == ENXIO) {
        text += context.container ? ": the container was not given it"
                                  : ": the kernel was built without it";
    } else if (reason != EACCES && reason != EPERM) {
        return {ExitCode::kFailed, text};
    } else if (const auto known = missing_privilege(Privilege::kRawAccess, context)) {
        text += ": " + *known;
    } else if (context.user != 0) {
        text += ": the user is not root";
    } else if (context.container) {
        text += ": the container was not given it";
    }
    return {ExitCode::kNoPermission, text};
}

Failure refused_file(const std::string& path, int reason) {
    const auto known = missing_privilege(Privilege::kOwnFiles, read_security_context());
    return {
        ExitCode::kNoPermission,
        fmt::format(
            "{}: {}{}", path, std::strerror(reason), known ? ": " + *known : std::string())};
}

Failure failed_registers(const std::string& subject, const std::string& location, int reason) {
    const std::string driver = driver_of(location);
    if (reason != EPERM || driver.empty() ||
        missing_privilege(Privilege::kRawAccess, read_security_context())) {
        return failed_memory(subject, reason);
    }
    return {
        ExitCode::kNoPermission,
        fmt::format(
            "{}: /dev/mem: {}: the kernel (CONFIG_IO_STRICT_DEVMEM) protects the registers of {} "
            "while the driver {} is bound to it; unbind the driver (echo {} > "
            "/sys/bus/pci/drivers/{}/unbind) or boot with iomem=relaxed",
            subject, std::strerror(reason), location, driver, location, driver)};
}

}  // namespace kx::ctl
