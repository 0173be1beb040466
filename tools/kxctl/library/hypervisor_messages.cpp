#include "library/hypervisor_messages.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace kx::ctl {
namespace {

std::string& last_reason() {
    static std::string reason;
    return reason;
}

std::string text_in(const Descriptor& file) {
    std::string text;
    std::array<char, 4096> chunk;
    for (ssize_t got;
         (got = pread(file.get(), chunk.data(), chunk.size(), static_cast<off_t>(text.size()))) >
         0;) {
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    return text;
}

// The reason in one line; empty when it is another line.
std::string_view reason_of_line(std::string_view line) {
    constexpr std::string_view kVirshMark = "error: ";
    constexpr std::string_view kLibvirtMark = "libvirt: ";
    if (line.starts_with(kVirshMark)) {
        return line.substr(kVirshMark.size());
    }
    const std::size_t error = line.starts_with(kLibvirtMark) ? line.find(" error ") : line.npos;
    const std::size_t colon = error == line.npos ? line.npos : line.find(": ", error);
    return colon == line.npos ? std::string_view() : line.substr(colon + 2);
}

}  // namespace

std::string reason_in(std::string_view messages) {
    std::string_view last;
    while (!messages.empty()) {
        const std::size_t end = messages.find('\n');
        if (const std::string_view reason = reason_of_line(messages.substr(0, end));
            !reason.empty()) {
            last = reason;
        }
        messages.remove_prefix(end == messages.npos ? messages.size() : end + 1);
    }
    return std::string(last);
}

const std::string& hypervisor_reason() { return last_reason(); }

// Without a file for them the messages are dropped as those of other calls are.
HypervisorMessages::HypervisorMessages() {
    last_reason().clear();
    if (!library_messages_shown()) {
        kept_ = Descriptor(memfd_create("messages", MFD_CLOEXEC));
    }
    if (kept_) {
        errors_.emplace(STDERR_FILENO, kept_);
    }
}

HypervisorMessages::~HypervisorMessages() {
    static_cast<void>(std::fflush(stderr));
    errors_.reset();
    if (kept_) {
        last_reason() = reason_in(text_in(kept_));
    }
}

}  // namespace kx::ctl
