#include "library/offload_devices.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

constexpr const char* kDevices = "/proc/net/offload/devices";
constexpr const char* kQ3Devices = "/proc/net/zfab3/devices";
constexpr std::size_t kLongestLine = 255;  // the library takes the rest for another line
constexpr const char* kFirstDevice = "toe0";

// A line of a list: "toe0  eth8 eth9".
struct DeviceLine {
    std::string text;
    std::string device;
    std::vector<std::string> interfaces;

    [[nodiscard]] bool serves(const std::string& interface) const {
        return std::ranges::find(interfaces, interface) != interfaces.end();
    }
    [[nodiscard]] std::string described() const {
        return fmt::format("{} ({})", device, fmt::join(interfaces, ", "));
    }
};

// The lines behind the headings; none when there is no list. The library reads the headings of
// kDevices too, and takes what it finds there for the first device.
std::vector<DeviceLine> read_device_lines(const char* path) {
    std::vector<DeviceLine> lines;
    std::ifstream file(path);
    for (std::string text; std::getline(file, text);) {
        DeviceLine line{text, "", {}};
        std::istringstream words(text.substr(0, kLongestLine));
        words >> line.device;
        for (std::string word; line.device.starts_with("toe") && words >> word;) {
            line.interfaces.push_back(word);
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

void check_line(const char* path, const std::string& interface) {
    const std::vector<DeviceLine> lines = read_device_lines(path);
    const auto taken = std::ranges::find_if(
        lines, [&](const DeviceLine& line) { return line.text.find(interface) != line.text.npos; });
    if (taken == lines.end() || taken->serves(interface)) {
        return;
    }
    const auto own =
        std::ranges::find_if(lines, [&](const DeviceLine& line) { return line.serves(interface); });
    throw Failure(
        ExitCode::kBusy,
        fmt::format(
            "{}: the library would take {} for {}, which {}", path, taken->described(), interface,
            own == lines.end() ? std::string("no device serves") : own->described() + " serves"));
}

}  // namespace

void check_offload_lines(const std::vector<std::string>& interfaces, bool is_q3) {
    for (const std::string& interface : interfaces) {
        check_line(kDevices, interface);
        if (is_q3) {
            check_line(kQ3Devices, interface);
        }
    }
    if (!interfaces.empty()) {
        return;
    }
    for (const DeviceLine& line : read_device_lines(kDevices)) {
        if (line.device == kFirstDevice && !line.interfaces.empty()) {
            throw Failure(
                ExitCode::kBusy,
                fmt::format(
                    "{}: the library would take {} for a card without an interface", kDevices,
                    line.described()));
        }
    }
}

}  // namespace kx::ctl
