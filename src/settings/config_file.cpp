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

#include "support/handle.hpp"
#include "support/small_file.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

constexpr std::size_t kLongestPiece = 255;
constexpr mode_t kNewFileMode = 0666;  // less the agent's umask

// The whole text from the descriptor's position on, or nothing when it cannot be read to its end.
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

// What has no disk behind it (a file that an administrator linked to /dev/null) needs no flushing.
bool flush_to_disk(const Descriptor& file) { return fsync(file.get()) == 0 || errno == EINVAL; }

// Strips through the exported trim, as agents may have put their own in its place; one that answers
// with an address outside the piece strips nothing.
std::string_view stripped(std::string_view piece) {
    std::array<char, kLongestPiece + 1> text{};
    piece.copy(text.data(), kLongestPiece);
    const auto skipped = static_cast<std::size_t>(
        reinterpret_cast<std::uintptr_t>(trim(text.data())) -
        reinterpret_cast<std::uintptr_t>(text.data()));
    return skipped <= piece.size() ? piece.substr(skipped) : piece;
}

bool has_own_line(std::string_view text, const LineTest& is_own) {
    Pieces pieces(text, kLongestPiece);
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
    Pieces pieces(text, kLongestPiece);
    while (const auto piece = pieces.next()) {
        const std::string_view kept = stripped(*piece);
        result += is_own(c_text(kept)) ? line : kept;
    }
    return result;
}

// Append whole or not at all: what a full disk took of the line is cut off again.
bool append(const Descriptor& file, std::string_view text, std::size_t old_size) {
    if (write_all(file, text) && flush_to_disk(file)) {
        return true;
    }
    [[maybe_unused]] const int cut = ftruncate(file.get(), static_cast<off_t>(old_size));
    return false;
}

// Nothing is written before mode and owner are right, so that no text is seen by more users than
// may see the file.
bool take_mode_and_owner(const Descriptor& file, const struct stat& model) {
    struct stat own {};
    if (fstat(file.get(), &own) != 0) {
        return false;
    }
    const bool foreign = own.st_uid != model.st_uid || own.st_gid != model.st_gid;
    return (!foreign || fchown(file.get(), model.st_uid, model.st_gid) == 0) &&
           fchmod(file.get(), model.st_mode & 07777) == 0;
}

bool write_copy(
    const Descriptor& from, const Descriptor& to, std::string_view line, const LineTest& is_own) {
    struct stat status {};
    const auto text = read_all(from);
    return text && fstat(from.get(), &status) == 0 && take_mode_and_owner(to, status) &&
           write_all(to, with_lines_replaced(*text, line, is_own)) && flush_to_disk(to);
}

// Names live in the directory: until it is flushed, a power loss may bring the old ones back.
void flush_directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == path.npos ? "." : path.substr(0, slash + 1);
    const Descriptor file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (file) {
        static_cast<void>(flush_to_disk(file));
    }
}

// Between the two renames the file's own name is absent; `kxctl repair` mends what a power loss
// leaves there.
bool exchange(const std::string& path, const std::string& fresh, const std::string& backup) {
    if (std::rename(path.c_str(), backup.c_str()) != 0) {
        return false;
    }
    if (std::rename(fresh.c_str(), path.c_str()) != 0) {
        static_cast<void>(std::rename(backup.c_str(), path.c_str()));
        return false;
    }
    flush_directory_of(path);
    unlink(backup.c_str());
    return true;
}

}  // namespace

Saving append_unless_present(const char* path, std::string_view line, const LineTest& is_own) {
    const Descriptor file(open(path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, kNewFileMode));
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
    return append(file, tail, text->size()) ? Saving::kAppended : Saving::kFailed;
}

bool replace_lines(const char* path, std::string_view line, const LineTest& is_own) {
    const std::string fresh = std::string(path) + ".tmp";
    const std::string backup = std::string(path) + ".bk";
    {
        const Descriptor from(open(path, O_RDONLY | O_CLOEXEC));
        if (!from) {
            return false;
        }
        const Descriptor to(
            open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kNewFileMode));
        if (!to) {
            return false;
        }
        if (!write_copy(from, to, line, is_own)) {
            unlink(fresh.c_str());  // a text that is not whole must not be taken for one that is
            return false;
        }
    }
    return exchange(path, fresh, backup);
}

}  // namespace kx::settings
