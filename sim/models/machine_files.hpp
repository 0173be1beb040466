// The files of a host's virtual machines (state/hypervisor.hpp), as libkxsim.so reads and writes
// them, on the real machine's paths.
#pragma once

#include <string_view>

#include "process/attached.hpp"
#include "process/path_text.hpp"
#include "process/text_buffer.hpp"

namespace kxsim::models {

// Keeps other processes from using the files while it exists.
class MachineLock {
public:
    explicit MachineLock(const process::Host& host);
    ~MachineLock();
    MachineLock(const MachineLock&) = delete;
    MachineLock& operator=(const MachineLock&) = delete;

private:
    int directory_;
};

// Whether the host has a file or directory.
[[nodiscard]] bool is_on_host(const process::Host& host, std::string_view path);

// Each is false when the whole file cannot be read or written.
[[nodiscard]] bool read_host_file(
    const process::Host& host, std::string_view path, process::TextBuffer& content);
[[nodiscard]] bool write_host_file(
    const process::Host& host, std::string_view path, std::string_view content);

// The path of a running machine's current description.
void live_path(std::string_view uuid, process::PathText& path);

// The URI under which libvirt's test driver reads the host's node.
void node_uri(const process::Host& host, process::TextBuffer& uri);

// Whether a URI is one of node_uri, of this host or of another one that this process was on.
[[nodiscard]] bool is_node_uri(std::string_view uri);

}  // namespace kxsim::models
