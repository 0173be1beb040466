#include "host/tree.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "host/fail_with_errno.hpp"
#include "host/quiet.hpp"

namespace kxsim {
namespace {

constexpr int kMostLinks = 40;  // the kernel's limit
constexpr mode_t kNewDirectory = 0755;

std::string parent_of(const std::string& place) { return place.substr(0, place.rfind('/')); }

// Continue a path by one name.
void step(std::string& path, std::string_view name) {
    if (name == "..") {
        path.resize(path.empty() ? 0 : path.rfind('/'));
    } else if (!name.empty() && name != ".") {
        path.append("/").append(name);
    }
}

// Remove and return the first name of a path.
std::string take_name(std::string& path) {
    const std::size_t begin = std::min(path.find_first_not_of('/'), path.size());
    const std::size_t end = std::min(path.find('/', begin), path.size());
    std::string name = path.substr(begin, end - begin);
    path.erase(0, end);
    return name;
}

// A path without ".", ".." and doubled slashes; empty for the top.
std::string normal(std::string_view path) {
    if (!path.starts_with('/')) {
        throw std::invalid_argument("not an absolute path: " + std::string(path));
    }
    std::string normal;
    while (!path.empty()) {
        const std::size_t length = std::min(path.find('/'), path.size());
        step(normal, path.substr(0, length));
        path.remove_prefix(length == path.size() ? length : length + 1);
    }
    return normal;
}

void write_all(int file, std::string_view content, const std::string& path) {
    while (!content.empty()) {
        const ssize_t written = ::write(file, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            fail_with_errno(path);
        }
        content.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
}

int open_top(const std::string& top) {
    const Quiet quiet;
    return ::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

}  // namespace

Tree::Tree(const std::string& root)
    : top_(root + state::kTreeDirectory),
      directory_(open_top(top_)),
      order_(root + state::kOrderFile) {}

// ---- Places -------------------------------------------------------------------------------------

std::string Tree::link_at(const std::string& place) const {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(real(place).c_str(), target, sizeof target);
    return {target, length < 0 ? 0 : static_cast<std::size_t>(length)};
}

// Links are followed as if the tree were the whole file system, so that no link leads out of it.
std::string Tree::follow_links(const std::string& path) const {
    std::string place;
    int links = 0;
    bool missing = false;  // and so is everything below it
    for (std::string rest = path; !rest.empty();) {
        const std::string name = take_name(rest);
        const std::string target = missing ? std::string() : link_at(place + "/" + name);
        if (target.empty()) {
            missing = missing || errno == ENOENT;
            step(place, name);
            continue;
        }
        if (++links > kMostLinks) {
            throw std::invalid_argument("links lead in a circle: " + path);
        }
        rest.insert(0, target);
        place.resize(target.starts_with('/') ? 0 : place.size());
    }
    return place;
}

Tree::Identity Tree::identity_of(const std::string& real) {
    struct stat status {};
    return ::stat(real.c_str(), &status) == 0 ? Identity{status.st_dev, status.st_ino} : Identity{};
}

std::string Tree::place_of_directory(const std::string& path) const {
    const auto known = found_.find(path);
    if (path.empty() || (known != found_.end() && known->second == identity_of(real(path)))) {
        return path;
    }
    if (place_of_directory(parent_of(path)) != parent_of(path) || !link_at(path).empty()) {
        return follow_links(path);
    }
    if (const Identity found = identity_of(real(path)); found != Identity{}) {
        found_.insert_or_assign(path, found);
    }
    return path;
}

std::string Tree::place(std::string_view path, LastLink last) const {
    std::string whole = normal(path);
    if (whole.empty()) {
        return whole;
    }
    std::string place = place_of_directory(parent_of(whole)) + whole.substr(whole.rfind('/'));
    return last == LastLink::kFollow && !link_at(place).empty() ? follow_links(whole) : place;
}

// ---- Entries ------------------------------------------------------------------------------------

// make: a system call on the real path, which fails for an entry that is there already.
template <class Make>
int Tree::make_entry(const std::string& place, Make make) {
    const std::string path = real(place);
    int result = make(path.c_str());
    if (result < 0 && errno == ENOENT) {
        make_directories(parent_of(place));
        result = make(path.c_str());
    }
    if (result >= 0) {
        order_.add(place);
    }
    return result;
}

void Tree::make_directories(const std::string& place) {
    const auto make = [](const char* path) { return ::mkdir(path, kNewDirectory); };
    if (place.empty() || make_entry(place, make) == 0) {
        return;
    }
    const int reason = errno;
    if (reason != EEXIST || !std::filesystem::is_directory(real(place))) {
        errno = reason;
        fail_with_errno(real(place));
    }
}

void Tree::make_directory(std::string_view path) {
    const Quiet quiet;
    make_directories(place(path, LastLink::kFollow));
}

// Most files have a directory and no link on their path: one call then finds them, and cannot leave
// the tree. Negative when there is a link, when the open fails, or on a kernel without this call.
int Tree::open_directly(const std::string& path, int flags, mode_t mode) const {
    open_how how{};
    how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
    how.mode = mode;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const char* const below_top = path.c_str() + (path.starts_with('/') ? 1 : 0);
    return static_cast<int>(::syscall(SYS_openat2, directory_.get(), below_top, &how, sizeof how));
}

// In place, so that a process that has the file open or mapped sees the new content. A link is
// replaced.
int Tree::open_existing(const std::string& place, mode_t mode) const {
    const std::string path = real(place);
    if (!link_at(place).empty()) {
        ::unlink(path.c_str());
        return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    }
    const int file = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (file >= 0 || errno != EACCES || ::chmod(path.c_str(), mode | S_IWUSR) != 0) {
        return file;
    }
    return ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
}

void Tree::write(std::string_view path, std::string_view content, mode_t mode) {
    const Quiet quiet;
    std::string file = normal(path);
    int opened = open_directly(file, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (opened >= 0) {
        order_.add(file);
    } else {
        file = place(path);
        opened = make_entry(file, [mode](const char* name) {
            return ::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        });
    }
    if (opened < 0 && errno == EEXIST) {
        opened = open_existing(file, mode);
    }
    const kx::Descriptor owner(opened);
    if (!owner) {
        fail_with_errno(real(file));
    }
    write_all(owner.get(), content, real(file));
    if (::fchmod(owner.get(), mode) != 0) {
        fail_with_errno(real(file));
    }
}

void Tree::append(std::string_view path, std::string_view content) {
    const Quiet quiet;
    if (const kx::Descriptor file(open_directly(normal(path), O_WRONLY | O_APPEND)); file) {
        write_all(file.get(), content, std::string(path));
        return;
    }
    const bool is_there = exists(path);
    write(path, (is_there ? read(path) : "") + std::string(content), is_there ? mode(path) : 0644);
}

void Tree::make_link(std::string_view path, std::string_view target) {
    const Quiet quiet;
    const std::string link = place(path);
    const std::string text(target);
    const auto make = [&](const char* name) { return ::symlink(text.c_str(), name); };
    if (make_entry(link, make) == 0) {
        return;
    }
    if (errno != EEXIST) {
        fail_with_errno(real(link));
    }
    if (link_at(link).empty()) {
        throw std::invalid_argument("\"" + std::string(path) + "\" is there already");
    }
    if (::unlink(real(link).c_str()) != 0 || make(real(link).c_str()) != 0) {
        fail_with_errno(real(link));
    }
}

void Tree::remove(std::string_view path) {
    const Quiet quiet;
    const std::string entry = place(path);
    order_.remove(entry);
    std::filesystem::remove_all(real(entry));
}

void Tree::order(std::string_view directory, const std::vector<std::string>& names) {
    const Quiet quiet;
    order_.set(place(directory, LastLink::kFollow), names);
}

// ---- Reading ------------------------------------------------------------------------------------

bool Tree::exists(std::string_view path) const {
    const Quiet quiet;
    struct stat status {};
    return ::lstat(real(place(path)).c_str(), &status) == 0;
}

std::string Tree::read(std::string_view path) const {
    const Quiet quiet;
    const std::string file = real(place(path, LastLink::kFollow));
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        fail_with_errno(file);
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string Tree::read_link(std::string_view path) const {
    const Quiet quiet;
    return link_at(place(path));
}

mode_t Tree::mode(std::string_view path) const {
    const Quiet quiet;
    struct stat status {};
    if (::stat(real(place(path, LastLink::kFollow)).c_str(), &status) != 0) {
        fail_with_errno(std::string(path));
    }
    return status.st_mode & 07777U;
}

}  // namespace kxsim
