#include "host/tree.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <stdexcept>

#include "host/beneath.hpp"
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

std::string read_all(int file, const std::string& path) {
    std::string content;
    char part[16384];
    for (;;) {
        const ssize_t count = ::read(file, part, sizeof part);
        if (count == 0) {
            return content;
        }
        if (count < 0 && errno != EINTR) {
            fail_with_errno(path);
        }
        content.append(part, count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

// file: one that its owner may not write to, opened with O_PATH.
bool allow_writing(const kx::Descriptor& file, mode_t mode) {
    const std::string name = "/proc/self/fd/" + std::to_string(file.get());
    return file && ::chmod(name.c_str(), mode | S_IWUSR) == 0;
}

template <class Make>
int make_in_directory(int top, const std::string& place, Make make) {
    const Entry entry(top, place);
    return entry.directory ? make(entry.directory.get(), entry.name.c_str()) : -1;
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

// make: a system call on an entry of a directory, which fails for an entry that is there already.
template <class Make>
int Tree::make_entry(const std::string& place, Make make) {
    int result = make_in_directory(directory_.get(), place, make);
    if (result < 0 && errno == ENOENT) {
        make_directories(parent_of(place));
        result = make_in_directory(directory_.get(), place, make);
    }
    if (result >= 0) {
        order_.add(place);
    }
    return result;
}

void Tree::make_directories(const std::string& place) {
    const auto make = [](int directory, const char* name) {
        return ::mkdirat(directory, name, kNewDirectory);
    };
    if (place.empty() || make_entry(place, make) == 0) {
        return;
    }
    const int reason = errno;
    if (reason != EEXIST || !open(place, O_PATH | O_DIRECTORY)) {
        errno = reason;
        fail_with_errno(real(place));
    }
}

void Tree::make_directory(std::string_view path) {
    const Quiet quiet;
    make_directories(place(path, LastLink::kFollow));
}

kx::Descriptor Tree::open(const std::string& place, int flags, mode_t mode) const {
    return open_beneath(directory_.get(), place, flags, mode);
}

// In place, so that a process that has the file open or mapped sees the new content. A link is
// replaced.
kx::Descriptor Tree::open_existing(const std::string& place, mode_t mode) const {
    if (!link_at(place).empty()) {
        const Entry entry(directory_.get(), place);
        if (!entry.directory || ::unlinkat(entry.directory.get(), entry.name.c_str(), 0) != 0) {
            return {};
        }
        return open(place, O_WRONLY | O_CREAT | O_EXCL, mode);
    }
    kx::Descriptor file = open(place, O_WRONLY | O_TRUNC);
    if (!file && errno == EACCES && allow_writing(open(place, O_PATH | O_NOFOLLOW), mode)) {
        file = open(place, O_WRONLY | O_TRUNC);
    }
    return file;
}

void Tree::write(std::string_view path, std::string_view content, mode_t mode) {
    const Quiet quiet;
    std::string file = normal(path);
    // Most files have a directory, and no link on their path: one call makes them.
    kx::Descriptor owner = open(file, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (owner) {
        order_.add(file);
    } else {
        file = place(path);
        owner = kx::Descriptor(make_entry(file, [mode](int directory, const char* name) {
            return ::openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        }));
    }
    if (!owner && errno == EEXIST) {
        owner = open_existing(file, mode);
    }
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
    if (const kx::Descriptor file = open(normal(path), O_WRONLY | O_APPEND)) {
        write_all(file.get(), content, std::string(path));
        return;
    }
    const bool is_there = exists(path);
    write(path, (is_there ? read(path) : "") + std::string(content), is_there ? mode(path) : 0644);
}

void Tree::make_link(std::string_view path, std::string_view target) {
    const Quiet quiet;
    std::string link = normal(path);
    const std::string text(target);
    const auto make = [&](int directory, const char* name) {
        return ::symlinkat(text.c_str(), directory, name);
    };
    // Most links have a directory, and no link on their path.
    if (make_in_directory(directory_.get(), link, make) == 0) {
        order_.add(link);
        return;
    }
    link = place(path);
    if (make_entry(link, make) == 0) {
        return;
    }
    if (errno != EEXIST) {
        fail_with_errno(real(link));
    }
    if (link_at(link).empty()) {
        throw std::invalid_argument("\"" + std::string(path) + "\" is there already");
    }
    const Entry entry(directory_.get(), link);
    const int directory = entry.directory.get();
    if (!entry.directory || ::unlinkat(directory, entry.name.c_str(), 0) != 0 ||
        make(directory, entry.name.c_str()) != 0) {
        fail_with_errno(real(link));
    }
}

void Tree::remove(std::string_view path) {
    const Quiet quiet;
    const std::string entry = place(path);
    if (entry.empty()) {
        throw std::invalid_argument("the root directory of a host stays");
    }
    order_.remove(entry);
    remove_entry(Entry(directory_.get(), entry));
}

void Tree::order(std::string_view directory, const std::vector<std::string>& names) {
    const Quiet quiet;
    order_.set(place(directory, LastLink::kFollow), names);
}

// ---- Reading ------------------------------------------------------------------------------------

bool Tree::exists(std::string_view path) const {
    const Quiet quiet;
    return static_cast<bool>(open(place(path), O_PATH | O_NOFOLLOW));
}

std::string Tree::read(std::string_view path) const {
    const Quiet quiet;
    const std::string file = place(path, LastLink::kFollow);
    const kx::Descriptor opened = open(file, O_RDONLY);
    if (!opened) {
        fail_with_errno(real(file));
    }
    return read_all(opened.get(), real(file));
}

std::string Tree::read_link(std::string_view path) const {
    const Quiet quiet;
    return link_at(place(path));
}

mode_t Tree::mode(std::string_view path) const {
    const Quiet quiet;
    struct stat status {};
    const kx::Descriptor opened = open(place(path, LastLink::kFollow), O_PATH);
    if (!opened || ::fstat(opened.get(), &status) != 0) {
        fail_with_errno(std::string(path));
    }
    return status.st_mode & 07777U;
}

}  // namespace kxsim
