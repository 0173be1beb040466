#include "change/saved_file.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <kxlinhw/settings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "files/descriptor.hpp"
#include "files/directory_lock.hpp"
#include "files/end_of_links.hpp"
#include "files/whole_file.hpp"
#include "settings/interface_records.hpp"

namespace kx::ctl {
namespace {

constexpr std::size_t kMostSavedBytes = std::size_t{1} << 24U;
constexpr unsigned kModeBits = 07777;

// A JSON string with one character for each byte, from U+0000 to U+00FF: texts stay readable, and
// no byte is lost.
std::string text_of_bytes(const std::string& bytes) {
    std::string text;
    for (const char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte < 0x80) {
            text += each;
        } else {
            text += static_cast<char>(0xC0U | (byte >> 6U));
            text += static_cast<char>(0x80U | (byte & 0x3FU));
        }
    }
    return text;
}

std::string bytes_of_text(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto first = static_cast<unsigned char>(text[at]);
        if (first < 0x80) {
            bytes += text[at];
        } else if ((first & 0xFCU) == 0xC0U && at + 1 < text.size()) {
            const auto second = static_cast<unsigned char>(text[++at]);
            bytes += static_cast<char>((first & 0x03U) << 6U | (second & 0x3FU));
        } else {
            throw std::runtime_error("a copy of a file is damaged");
        }
    }
    return bytes;
}

// Returns 0, or the errno of the failed step.
int fill(int file, const SavedFile& saved) {
    if (const int reason = write_text(file, saved.bytes); reason != 0) {
        return reason;
    }
    const bool done = fchown(file, saved.user, saved.group) == 0 && fchmod(file, saved.mode) == 0 &&
                      fsync(file) == 0;
    return done ? 0 : errno;
}

void replace(const SavedFile& saved) {
    const std::string fresh = fmt::format("{}.kxctl-{}", saved.path, getpid());
    unlink(fresh.c_str());  // of a process with this number that was killed
    const Descriptor file(
        open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file) {
        throw file_failure(saved.path, errno);
    }
    int reason = fill(file.get(), saved);
    if (reason == 0 && std::rename(fresh.c_str(), saved.path.c_str()) != 0) {
        reason = errno;
    }
    if (reason != 0) {
        unlink(fresh.c_str());
        throw file_failure(saved.path, reason);
    }
}

}  // namespace

std::vector<std::string> port_setting_files() {
    const std::string settings = end_of_links(KX_PORT_PARAMETER_FILE);
    return {settings, settings + ".bk", settings + ".tmp", end_of_links(kInterfaceRecordFile)};
}

SavedFile copy_file(const std::string& path) {
    SavedFile saved{.path = path};
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT && errno != ENOTDIR) {
            throw file_failure(path, errno);
        }
        return saved;
    }
    const std::vector<std::uint8_t> bytes = read_whole_file(path, kMostSavedBytes);
    saved.exists = true;
    saved.mode = status.st_mode & kModeBits;
    saved.user = status.st_uid;
    saved.group = status.st_gid;
    saved.bytes.assign(bytes.begin(), bytes.end());
    return saved;
}

void flush_file(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file ? fsync(file.get()) != 0 : errno != ENOENT && errno != ENOTDIR) {
        throw file_failure(path, errno);
    }
    const std::string parent = std::filesystem::path(path).parent_path();
    const Descriptor directory(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool flushed = directory ? fsync(directory.get()) == 0 || errno == EINVAL
                                   : errno == ENOENT || errno == ENOTDIR;
    if (!flushed) {
        throw file_failure(parent, errno);
    }
}

void put_file_back(const SavedFile& file) {
    const DirectoryLock lock(file.path);
    if (file.exists) {
        replace(file);
    } else if (unlink(file.path.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR) {
        throw file_failure(file.path, errno);
    }
    lock.flush();
}

Json saved_file_json(const SavedFile& file) {
    Json json{{"path", text_of_bytes(file.path)}, {"exists", file.exists}};
    if (file.exists) {
        json["mode"] = file.mode;
        json["user"] = file.user;
        json["group"] = file.group;
        json["bytes"] = text_of_bytes(file.bytes);
    }
    return json;
}

SavedFile saved_file_of(const Json& json) {
    SavedFile file{
        .path = bytes_of_text(json.at("path").get<std::string>()),
        .exists = json.at("exists").get<bool>()};
    if (file.exists) {
        file.mode = json.at("mode").get<unsigned>() & kModeBits;
        file.user = json.at("user").get<unsigned>();
        file.group = json.at("group").get<unsigned>();
        file.bytes = bytes_of_text(json.at("bytes").get<std::string>());
    }
    return file;
}

}  // namespace kx::ctl
