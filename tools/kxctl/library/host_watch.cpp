#include "library/host_watch.hpp"

#include <fmt/core.h>
#include <linux/ethtool.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>

#include "failure/unread.hpp"

namespace kx::ctl {
namespace {

int watches = 0;

// The answers of the library depend on what is below these paths.
constexpr std::string_view kPaths[] = {
    "/sys/bus/pci",  "/sys/class/net", "/sys/module",  "/proc/modules", "/proc/net", "/proc/driver",
    "/proc/sys/toe", "/proc/bus/pci",  "/lib/modules", "/lib/firmware", "/dev/mem",  "/etc/libvirt",
};

// What has no slash in front is no file (the socket), or the name of a module, which the library
// tries as a path.
bool matters(std::string_view path) {
    return !path.empty() &&
           (path.front() != '/' || std::ranges::any_of(kPaths, [&](std::string_view row) {
                return path.starts_with(row);
            }));
}

// The object is missing, or has no such property.
bool is_absence(int reason) {
    constexpr int kAbsences[] = {ENOENT, ENOTDIR, ENODEV, ENXIO, EOPNOTSUPP, ENOTTY};
    return std::ranges::find(kAbsences, reason) != std::end(kAbsences);
}

constexpr std::string_view kDriver = "driver";
constexpr std::string_view kDriverEnding = ": driver";

struct RequestRow {
    std::uint32_t command;
    std::string_view what;
    bool is_of_port;  // fills a field of the port that the commands compare one by one
};

constexpr RequestRow kRequests[] = {
    {ETHTOOL_GDRVINFO, kDriver, false},
    {ETHTOOL_GSTRINGS, "names of counters", false},
    {ETHTOOL_GSTATS, "counters", false},
    {ETHTOOL_GSET, "link settings", true},
    {ETHTOOL_GLINK, "link", true},
    {ETHTOOL_GMSGLVL, "message level", true},
    {ETHTOOL_GRXCSUM, "receive checksum", true},
    {ETHTOOL_GTXCSUM, "transmit checksum", true},
    {ETHTOOL_GSG, "scatter-gather", true},
    {ETHTOOL_GTSO, "TCP segmentation", true},
    {ETHTOOL_GGSO, "generic segmentation", true},
    {ETHTOOL_GWOL, "wake-on-LAN", true},
    {ETHTOOL_GCOALESCE, "coalescing", true},
    {ETHTOOL_GRINGPARAM, "rings", true},
    {ETHTOOL_GPAUSEPARAM, "pause", true},
};

const RequestRow* find_request(std::uint32_t command) {
    const auto* const row = std::ranges::find(kRequests, command, &RequestRow::command);
    return row == std::end(kRequests) ? nullptr : row;
}

using AnswersByName = std::map<std::string, DriverAnswers, std::less<>>;

AnswersByName& answers() {
    static AnswersByName all;
    return all;
}

}  // namespace

// An error of an earlier call is nobody's.
HostWatch::HostWatch() {
    ++watches;
    errno = 0;
}

HostWatch::~HostWatch() {
    host_watch::note_left_error();
    --watches;
}

const DriverAnswers::Answer* DriverAnswers::find(std::uint32_t command) const {
    const auto found = std::ranges::find(answers_, command, &Answer::command);
    return found == answers_.end() ? nullptr : &*found;
}

int DriverAnswers::reason(std::uint32_t command) const {
    const Answer* const answer = find(command);
    return answer == nullptr ? 0 : answer->reason;
}

Answered DriverAnswers::to(std::uint32_t command) const {
    const Answer* const answer = find(command);
    return answer == nullptr || is_absence(answer->reason) ? Answered::kNone
           : answer->reason == 0                           ? Answered::kGiven
                                                           : Answered::kUnread;
}

// The library asks for the link twice; a failure counts.
void DriverAnswers::note(std::uint32_t command, int reason) {
    const auto found = std::ranges::find(answers_, command, &Answer::command);
    if (found == answers_.end()) {
        answers_.push_back({command, reason});
    } else if (reason != 0) {
        found->reason = reason;
    }
}

void DriverAnswers::note_speed(std::uint32_t mbps) {
    constexpr std::uint32_t kUnknown = 0xFFFFFFFF;
    constexpr std::uint32_t kUnknownOf16Bits = 0xFFFF;
    if (mbps != 0 && mbps != kUnknown && mbps != kUnknownOf16Bits) {
        speed_mbps_ = mbps;
    }
}

bool is_unread_interface() {
    return is_unread(host_watch::kInterfaceSocket) || is_unread("/sys/class/net") ||
           is_unread(kDriverEnding);
}

DriverAnswers driver_answers(std::string_view interface_name) {
    const auto found = answers().find(interface_name);
    return found == answers().end() ? DriverAnswers() : found->second;
}

void forget_driver_answers() { answers().clear(); }

std::string_view request_text(std::uint32_t command) {
    const RequestRow* const row = find_request(command);
    return row == nullptr ? std::string_view() : row->what;
}

namespace host_watch {

bool active() { return watches > 0; }

void note_left_error() {
    if (active() && errno == ENOMEM) {
        note_no_memory();
        errno = 0;
    }
}

void note_path(std::string_view path, int reason) {
    if (matters(path) && !is_absence(reason)) {
        note_unread(path, reason);
    }
}

void note_request(std::string_view interface_name, std::uint32_t command, int reason) {
    const RequestRow* const row = find_request(command);
    if (row == nullptr) {
        return;
    }
    if (row->is_of_port) {
        answers()[std::string(interface_name)].note(command, reason);
    } else if (reason != 0 && !is_absence(reason)) {
        note_unread(fmt::format("{}: {}", interface_name, row->what), reason);
    }
}

void note_speed(std::string_view interface_name, std::uint32_t mbps) {
    answers()[std::string(interface_name)].note_speed(mbps);
}

}  // namespace host_watch

}  // namespace kx::ctl
