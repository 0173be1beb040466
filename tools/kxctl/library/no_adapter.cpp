#include "library/no_adapter.hpp"

#include <fmt/core.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "files/whole_file.hpp"

namespace kx::ctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPciFunctions = "/sys/bus/pci/devices";

constexpr std::array<std::uint32_t, 3> kNothingFound = {
    KX_NO_CARDS, KX_NO_ADAPTERS, KX_DRIVER_NOT_LOADED};

bool is_of_the_maker(const fs::path& function) {
    constexpr std::size_t kLongestId = 16;
    const std::vector<std::uint8_t> text = read_whole_file(function / "vendor", kLongestId);
    const std::string wanted = fmt::format("{:#06x}\n", unsigned{KXLINHW_PCI_VENDOR_ID});
    return std::string(text.begin(), text.end()) == wanted;
}

bool machine_has_adapter() {
    std::error_code error;
    fs::directory_iterator function(kPciFunctions, error);
    if (error == std::errc::no_such_file_or_directory) {
        return false;  // a machine without a PCI bus
    }
    for (; !error && function != fs::directory_iterator(); function.increment(error)) {
        if (is_of_the_maker(function->path())) {
            return true;
        }
    }
    if (error) {
        throw file_failure(kPciFunctions, error.value());
    }
    return false;
}

}  // namespace

bool says_no_adapter(const Failure& failure) {
    const auto status = failure.status();
    if (!status || std::ranges::find(kNothingFound, *status) == kNothingFound.end()) {
        return false;
    }
    // A virtual function, as guests have it, does not count as an adapter.
    return !machine_has_adapter() || *status == KX_NO_ADAPTERS;
}

std::string no_adapter_text() { return with_simulation_offer("This host has no Kestrix adapter"); }

}  // namespace kx::ctl
