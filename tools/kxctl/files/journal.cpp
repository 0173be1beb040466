#include "files/journal.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

#include "failure/failure.hpp"
#include "files/whole_file.hpp"

namespace kx::ctl {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kJournals = "/var/lib/kxctl";
constexpr mode_t kOwnersDirectory = 0700;

// Letters, digits, "-", "_", ":" and "." stay, except a "." at the beginning.
std::string directory_name(std::string_view subject) {
    std::string name;
    for (const char letter : subject) {
        const auto byte = static_cast<unsigned char>(letter);
        const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= 'a' && byte <= 'z') || byte == '-' || byte == '_' ||
                           byte == ':' || (byte == '.' && !name.empty());
        name += plain ? std::string(1, letter) : fmt::format("%{:02X}", byte);
    }
    return name;
}

std::string area_directory(std::string_view area) { return fmt::format("{}/{}", kJournals, area); }

// Some file systems cannot flush a directory.
void flush_directory(const std::string& path) {
    const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory || (fsync(directory.get()) != 0 && errno != EINVAL)) {
        throw file_failure(path, errno);
    }
}

// Create the directories of a path that are missing, and flush their names.
void make_journal_directory(const std::string& path) {
    if (mkdir(path.c_str(), kOwnersDirectory) == 0) {
        flush_directory(fs::path(path).parent_path());
        return;
    }
    const int reason = errno;
    if (reason == ENOENT && path.size() > 1) {
        make_journal_directory(fs::path(path).parent_path());
        make_journal_directory(path);
    } else if (reason != EEXIST) {
        throw file_failure(path, reason);
    }
}

void remove_directory(const std::string& path) {
    std::error_code error;
    fs::remove_all(path, error);
    if (error) {
        throw file_failure(path, error.value());
    }
}

void move_directory(const std::string& from, const std::string& to) {
    if (std::rename(from.c_str(), to.c_str()) != 0) {
        throw file_failure(from, errno);
    }
}

// The names in a directory; none when it is missing.
std::vector<std::string> names_in(const std::string& path) {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(path, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        names.push_back(entry->path().filename());
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw file_failure(path, error.value());
    }
    std::ranges::sort(names);
    return names;
}

// "17.written"
std::optional<DoneChange> done_change(const std::string& directory, const std::string& name) {
    unsigned number = 0;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data(), end, number);
    if (error != std::errc() || rest == end || *rest != '.') {
        return std::nullopt;
    }
    return DoneChange{number, std::string(rest + 1, end), directory + "/" + name};
}

}  // namespace

Journal::Journal(std::string_view area, std::string_view subject)
    : directory_(area_directory(area) + "/" + directory_name(subject)) {}

std::vector<Journal> Journal::all(std::string_view area) {
    std::vector<Journal> journals;
    for (const std::string& name : names_in(area_directory(area))) {
        journals.push_back(Journal(area_directory(area) + "/" + name));
    }
    return journals;
}

bool Journal::has_open() const {
    struct stat status {};
    if (lstat(open_directory().c_str(), &status) == 0) {
        return true;
    }
    if (errno != ENOENT && errno != ENOTDIR) {
        throw file_failure(open_directory(), errno);
    }
    return false;
}

std::vector<DoneChange> Journal::done() const {
    std::vector<DoneChange> changes;
    const std::string directory = directory_ + "/done";
    for (const std::string& name : names_in(directory)) {
        if (const auto change = done_change(directory, name)) {
            changes.push_back(*change);
        }
    }
    std::ranges::sort(changes, std::ranges::greater(), &DoneChange::number);
    return changes;
}

void Journal::lock() {
    make_journal_directory(directory_);
    make_journal_directory(directory_ + "/done");
    lock_ = Descriptor(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock_) {
        throw file_failure(directory_, errno);
    }
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        throw errno == EWOULDBLOCK
            ? Failure(ExitCode::kBusy, fmt::format("{}: another kxctl works there", directory_))
            : file_failure(directory_, errno);
    }
}

unsigned Journal::next_number() const {
    const std::vector<DoneChange> changes = done();
    return changes.empty() ? 1 : changes.front().number + 1;
}

void Journal::open(std::span<const JournalFile> files) const {
    const std::string fresh = directory_ + "/new";
    remove_directory(fresh);  // of a process that was killed
    try {
        make_journal_directory(fresh);
        for (const JournalFile& file : files) {
            write_new_file(fmt::format("{}/{}", fresh, file.name), file.bytes);
        }
        move_directory(fresh, open_directory());
    } catch (const Failure&) {
        std::error_code ignored;  // the failure is the one above
        fs::remove_all(fresh, ignored);
        throw;
    }
    try {
        flush_directory(directory_);
    } catch (const Failure&) {
        move_directory(open_directory(), fresh);
        throw;
    }
}

void Journal::close(unsigned number, std::string_view outcome, std::size_t keep) const {
    move_directory(open_directory(), fmt::format("{}/done/{}.{}", directory_, number, outcome));
    flush_directory(directory_ + "/done");
    flush_directory(directory_);
    const std::vector<DoneChange> changes = done();
    for (std::size_t old = keep; old < changes.size(); ++old) {
        std::error_code ignored;  // the next change removes what stays
        fs::remove_all(changes[old].directory, ignored);
    }
}

}  // namespace kx::ctl
