#include "settings/interface_records.hpp"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "files/replaced_file.hpp"
#include "library/host_interfaces.hpp"
#include "settings/port_driver.hpp"

namespace kx::ctl {
namespace {

constexpr char kHead[] =
    "# Written by kxctl: which port an interface was when its settings were saved.\n"
    "# INTERFACE MAC LOCATION\n";
constexpr char kNone[] = "-";

bool is_mac(std::string_view text) {
    if (text.size() != sizeof "00:00:00:00:00:00" - 1) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool good = i % 3 == 2
                              ? text[i] == ':'
                              : std::string_view("0123456789abcdef").find(text[i]) != text.npos;
        if (!good) {
            return false;
        }
    }
    return true;
}

std::string file_text(const InterfaceRecords& records) {
    std::string text = kHead;
    for (const auto& [name, record] : records.by_name) {
        text += fmt::format("{} {} {}\n", name, record.mac, record.location);
    }
    return text;
}

}  // namespace

std::optional<InterfaceRecord> identify(const std::string& interface_name) {
    const auto present = host_interface(interface_name);
    if (!present) {
        return std::nullopt;
    }
    const std::string permanent = PortDriver(interface_name).permanent_mac();
    const std::string& mac = permanent.empty() ? present->mac : permanent;
    const std::string location = present->location ? present->location->full_text() : kNone;
    return is_mac(mac) ? std::optional(InterfaceRecord{mac, location}) : std::nullopt;
}

InterfaceRecords parse_interface_records(std::string_view text) {
    InterfaceRecords records;
    std::istringstream lines{std::string(text)};
    std::string line;
    for (std::size_t number = 1; std::getline(lines, line); ++number) {
        std::istringstream words(line);
        std::string name;
        InterfaceRecord record;
        std::string more;
        if (!(words >> name) || name[0] == '#') {
            continue;
        }
        if (words >> record.mac >> record.location && !(words >> more) && is_mac(record.mac)) {
            records.by_name.insert_or_assign(name, record);
        } else {
            records.damaged.push_back({number, "no INTERFACE MAC LOCATION"});
        }
    }
    return records;
}

InterfaceRecords read_interface_records() {
    std::ifstream file(kInterfaceRecordFile, std::ios::binary);
    if (!file) {
        const int reason = errno;
        if (reason == ENOENT) {
            return {};
        }
        if (reason == EACCES || reason == EPERM) {
            throw refused_file(kInterfaceRecordFile, reason);
        }
        throw Failure(
            ExitCode::kFailed, fmt::format("{}: {}", kInterfaceRecordFile, std::strerror(reason)));
    }
    try {
        file.exceptions(std::ios::badbit);
        return parse_interface_records(std::string(std::istreambuf_iterator<char>(file), {}));
    } catch (const std::ios::failure&) {
        throw Failure(ExitCode::kFailed, fmt::format("{} cannot be read", kInterfaceRecordFile));
    }
}

void record_interface(const std::string& interface_name) {
    const auto identity = identify(interface_name);
    InterfaceRecords records = read_interface_records();
    const auto known = records.by_name.find(interface_name);
    if (!identity) {
        if (known == records.by_name.end()) {
            return;
        }
        records.by_name.erase(known);  // the old line would name another port
    } else if (
        known != records.by_name.end() && known->second.mac == identity->mac &&
        known->second.location == identity->location && records.damaged.empty()) {
        return;
    } else {
        records.by_name.insert_or_assign(interface_name, *identity);
    }
    replace_file(kInterfaceRecordFile, file_text(records));
}

}  // namespace kx::ctl
