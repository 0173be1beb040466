#include "settings/config_file.hpp"

#include <fcntl.h>
#include <kxlinhw/settings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "settings/locked_target.hpp"
#include "support/handle.hpp"
#include "support/small_file.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

constexpr std::size_t kLongestPiece = 255;
constexpr mode_t kNewFileMode = 0644;  // less the agent's umask, which may be 0
constexpr mode_t kNewCopyMode = 0600;  // until it gets the mode of the file
constexpr int kOwnFile = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;  // does not wait for a named pipe

// The whole text from the descriptor's position, or nothing when it cannot be read to its end.
std::optional<std::string> read_all(const Descriptor& file) {
    std::string text;
    std::array<char, 4096> chunk;
    for (;;) {
        const ssize_t got = read(file.get(), chunk.data(), chunk.size());
        if (got == 0) {
            return text;
        }
        if (got > 0) {
            text.append(chunk.data(), static_cast<std::size_t>(got));
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

bool write_all(const Descriptor& file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = write(file.get(), text.data(), text.size());
        if (put > 0) {
            text.remove_prefix(static_cast<std::size_t>(put));
        } else if (put == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Strips through the exported trim, which agents may replace. When trim returns an address outside
// the piece, nothing is stripped.
std::string_view stripped(std::string_view piece) {
    std::array<char, kLongestPiece + 1> text{};
    piece.copy(text.data(), kLongestPiece);
    const auto skipped = static_cast<std::size_t>(
        reinterpret_cast<std::uintptr_t>(trim(text.data())) -
        reinterpret_cast<std::uintptr_t>(text.data()));
    return skipped <= piece.size() ? piece.substr(skipped) : piece;
}

bool has_own_line(std::string_view text, const LineTest& is_own) {
    LinePieces pieces(text, kLongestPiece);
    while (const auto piece = pieces.next()) {
        if (is_own(c_text(stripped(*piece)))) {
            return true;
        }
    }
    return false;
}

std::string with_lines_replaced(
    std::string_view text, std::string_view line, const LineTest& is_own) {
    std::string result;
    LinePieces pieces(text, kLongestPiece);
    while (const auto piece = pieces.next()) {
        const std::string_view kept = stripped(*piece);
        result += is_own(c_text(kept)) ? line : kept;
    }
    return result;
}

// Append the whole line or nothing: when the disk is full, the part that was written is removed
// again. The name of a new file is safe only after its directory has been flushed.
bool append(
    const LockedTarget& target, const Descriptor& file, std::string_view text,
    std::size_t old_size) {
    if (write_all(file, text) && flush_to_disk(file) &&
        (old_size != 0 || target.flush_directory())) {
        return true;
    }
    [[maybe_unused]] const int cut = ftruncate(file.get(), static_cast<off_t>(old_size));
    return false;
}

bool may_not_change_owner(int reason) {
    return reason == EPERM || reason == EINVAL;  // EINVAL: the container does not have this user
}

// Set owner and group, as far as the agent may.
bool take_owner(const Descriptor& file, const struct stat& own, const struct stat& model) {
    if (own.st_uid == model.st_uid && own.st_gid == model.st_gid) {
        return true;
    }
    if (fchown(file.get(), model.st_uid, model.st_gid) == 0) {
        return true;
    }
    if (!may_not_change_owner(errno)) {
        return false;
    }
    constexpr uid_t kSameOwner = static_cast<uid_t>(-1);
    return fchown(file.get(), kSameOwner, model.st_gid) == 0 || may_not_change_owner(errno);
}

// The mode of the model. With another owner it loses the set-user-id and set-group-id bits; with
// another group, group and others get only the permissions that both had.
mode_t mode_for(const struct stat& own, const struct stat& model) {
    const mode_t mode = model.st_mode & 07777;
    const bool same_group = own.st_gid == model.st_gid;
    if (same_group) {
        return own.st_uid == model.st_uid ? mode : mode & 0777;
    }
    const mode_t common = mode >> 3 & mode & 07;
    return (mode & 0700) | common << 3 | common;
}

// Nothing is written before mode and owner are set, so that no text is readable for more users than
// the file.
bool take_mode_and_owner(const Descriptor& file, const struct stat& model) {
    struct stat own {};
    return fstat(file.get(), &own) == 0 && take_owner(file, own, model) &&
           fstat(file.get(), &own) == 0 && fchmod(file.get(), mode_for(own, model)) == 0;
}

bool write_copy(
    const Descriptor& from, const Descriptor& to, std::string_view line, const LineTest& is_own) {
    struct stat status {};
    if (fstat(from.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;  // a device must not be replaced by a file
    }
    const auto text = read_all(from);
    return text && take_mode_and_owner(to, status) &&
           write_all(to, with_lines_replaced(*text, line, is_own)) && flush_to_disk(to);
}

// Between the two renames no file has the original name; `kxctl repair` repairs this after a power
// loss.
bool exchange(const LockedTarget& target, const std::string& fresh) {
    const std::string& path = target.path();
    const std::string backup = path + ".bk";
    if (std::rename(path.c_str(), backup.c_str()) != 0) {
        return false;
    }
    if (std::rename(fresh.c_str(), path.c_str()) != 0) {
        static_cast<void>(std::rename(backup.c_str(), path.c_str()));
        return false;
    }
    static_cast<void>(target.flush_directory());
    unlink(backup.c_str());
    return true;
}

}  // namespace

Saving append_unless_present(const char* path, std::string_view line, const LineTest& is_own) {
    const LockedTarget target(path);
    if (!target) {
        return Saving::kUnopened;
    }
    const Descriptor file(
        open(target.path().c_str(), O_RDWR | O_APPEND | O_CREAT | kOwnFile, kNewFileMode));
    if (!file) {
        return Saving::kUnopened;
    }
    const auto text = read_all(file);
    if (!text) {
        return Saving::kFailed;
    }
    if (has_own_line(*text, is_own)) {
        return Saving::kPresent;
    }
    const bool torn = !text->empty() && text->back() != '\n';
    const std::string tail = (torn ? "\n" : "") + std::string(line);
    return append(target, file, tail, text->size()) ? Saving::kAppended : Saving::kFailed;
}

bool replace_lines(const char* path, std::string_view line, const LineTest& is_own) {
    const LockedTarget target(path);
    if (!target) {
        return false;
    }
    const std::string fresh = target.path() + ".tmp";
    {
        const Descriptor from(open(target.path().c_str(), O_RDONLY | kOwnFile));
        if (!from) {
            return false;
        }
        // A file that an earlier rewrite left may belong to another user, or may be a link to any
        // other file.
        unlink(fresh.c_str());
        const Descriptor to(
            open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | kOwnFile, kNewCopyMode));
        if (!to) {
            return false;
        }
        if (!write_copy(from, to, line, is_own)) {
            unlink(fresh.c_str());  // an incomplete text must not look like a complete one
            return false;
        }
    }
    return exchange(target, fresh);
}

}  // namespace kx::settings
