#include "models/machine_files.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "process/next.hpp"
#include "state/hypervisor.hpp"

namespace kxsim::models {
namespace {

using process::PathText;

void lead_into_tree(const process::Host& host, std::string_view path, PathText& in_tree) {
    in_tree.append({host.tree, host.tree_length});
    in_tree.append(path);
}

int open_on_host(const process::Host& host, std::string_view path, int flags) {
    PathText in_tree;
    lead_into_tree(host, path, in_tree);
    return process::next<"open", decltype(::open)>()(in_tree.c_str(), flags | O_CLOEXEC, 0644);
}

constexpr bool is_plain_in_uri(char c) {
    constexpr std::string_view kMarks = "/-._~";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kMarks.find(c) != kMarks.npos;
}

}  // namespace

MachineLock::MachineLock(const process::Host& host)
    : directory_(open_on_host(host, state::kMachineDirectory, O_RDONLY | O_DIRECTORY)) {
    if (directory_ >= 0) {
        ::flock(directory_, LOCK_EX);
    }
}

MachineLock::~MachineLock() {
    if (directory_ >= 0) {
        ::close(directory_);
    }
}

bool is_on_host(const process::Host& host, std::string_view path) {
    PathText in_tree;
    lead_into_tree(host, path, in_tree);
    struct stat status {};
    return process::next<"lstat", decltype(::lstat)>()(in_tree.c_str(), &status) == 0;
}

bool read_host_file(
    const process::Host& host, std::string_view path, process::TextBuffer& content) {
    const int file = open_on_host(host, path, O_RDONLY);
    if (file < 0) {
        return false;
    }
    std::array<char, 4096> chunk;
    ssize_t got = 0;
    while ((got = process::next<"read", decltype(::read)>()(file, chunk.data(), chunk.size())) >
           0) {
        content.append({chunk.data(), static_cast<std::size_t>(got)});
    }
    ::close(file);
    return got == 0 && content.complete();
}

bool write_host_file(const process::Host& host, std::string_view path, std::string_view content) {
    const int file = open_on_host(host, path, O_WRONLY | O_CREAT | O_TRUNC);
    if (file < 0) {
        return false;
    }
    ssize_t written = 0;
    while (!content.empty() && (written = process::next<"write", decltype(::write)>()(
                                    file, content.data(), content.size())) > 0) {
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    ::close(file);
    return content.empty();
}

void live_path(std::string_view uuid, PathText& path) {
    path.append(state::kMachineDirectory);
    path.append("/");
    path.append(uuid);
    path.append(".xml");
}

void node_uri(const process::Host& host, process::TextBuffer& uri) {
    uri.append("test://");
    PathText in_tree;
    lead_into_tree(host, state::kNodeFile, in_tree);
    for (const char c : in_tree.view()) {
        if (is_plain_in_uri(c)) {
            uri.append({&c, 1});
        } else {
            constexpr std::string_view kDigits = "0123456789ABCDEF";
            const auto byte = static_cast<unsigned char>(c);
            const char escape[] = {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
            uri.append({escape, sizeof escape});
        }
    }
}

bool is_node_uri(std::string_view uri) {
    return uri.starts_with("test://") && uri.ends_with(state::kNodeFile);
}

}  // namespace kxsim::models
