#include "host/tree.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "host/quiet.hpp"
#include "state/session.hpp"

namespace kxsim {
namespace {

namespace fs = std::filesystem;

// libpci inserts each device that it reads at the front of its list.
constexpr std::string_view kNewestFirst = "/sys/bus/pci/devices";

// A simulated path without its leading slash, to be put below the session's directory.
fs::path relative(std::string_view path) {
    const fs::path normal = fs::path(path).lexically_normal();
    if (!normal.is_absolute()) {
        throw std::invalid_argument("not an absolute path: " + std::string(path));
    }
    return normal.relative_path();
}

constexpr int kMostLinks = 40;  // the kernel's limit

}  // namespace

void fail_with_errno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string read_whole(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        fail_with_errno(path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_whole(const fs::path& path, std::string_view content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) {
        fail_with_errno(path);
    }
}

// Links are followed as if the tree were the whole file system, so that no link leads out of it.
fs::path Tree::place(std::string_view path, LastLink last) const {
    const fs::path top = root_ / (state::kTreeDirectory + 1);
    const fs::path given = relative(path);
    std::deque<fs::path> names(given.begin(), given.end());
    fs::path place = top;
    int links = 0;
    while (!names.empty()) {
        const fs::path name = names.front();
        names.pop_front();
        if (name == "..") {
            place = place == top ? top : place.parent_path();
            continue;
        }
        if (name.empty() || name == ".") {
            continue;
        }
        const bool keep = names.empty() && last == LastLink::kKeep;
        if (keep || !fs::is_symlink(fs::symlink_status(place / name))) {
            place /= name;
            continue;
        }
        if (++links > kMostLinks) {
            throw std::invalid_argument("links lead in a circle: " + std::string(path));
        }
        const fs::path target = fs::read_symlink(place / name);
        const fs::path below = target.relative_path();
        names.insert(names.begin(), below.begin(), below.end());
        place = target.is_absolute() ? top : place;
    }
    return place;
}

fs::path Tree::order_file(const fs::path& directory) const {
    const fs::path below = directory.lexically_relative(root_ / (state::kTreeDirectory + 1));
    return root_ / (state::kOrderDirectory + 1) / below / (state::kOrderFile + 1);
}

void Tree::note_entry(const fs::path& path) {
    const fs::path order = order_file(path.parent_path());
    fs::create_directories(order.parent_path());
    const std::string line = path.filename().string() + "\n";
    const bool newest_first = path.parent_path() == place(kNewestFirst);
    if (newest_first) {
        write_whole(order, line + (fs::exists(order) ? read_whole(order) : ""));
    } else {
        std::ofstream(order, std::ios::app) << line;
    }
}

void Tree::forget_entry(const fs::path& path) {
    const fs::path order = order_file(path.parent_path());
    if (!fs::exists(order)) {
        return;
    }
    std::ifstream lines(order);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (line != path.filename()) {
            kept += line + "\n";
        }
    }
    write_whole(order, kept);
}

void Tree::make_directories(const fs::path& path) {
    if (fs::is_directory(path)) {
        return;
    }
    make_directories(path.parent_path());
    if (::mkdir(path.c_str(), 0755) != 0) {
        fail_with_errno(path);
    }
    note_entry(path);
}

// Prepare a new entry: create the directories above it, and remove an entry with that name.
void Tree::prepare(const fs::path& path) {
    make_directories(path.parent_path());
    if (fs::is_symlink(fs::symlink_status(path))) {
        fs::remove(path);
    } else if (fs::exists(path)) {
        return;
    } else {
        note_entry(path);
    }
}

void Tree::make_directory(std::string_view path) {
    const Quiet quiet;
    make_directories(place(path, LastLink::kFollow));
}

// In place, so that a process that has the file open or mapped sees the new content.
void Tree::write(std::string_view path, std::string_view content, mode_t mode) {
    const Quiet quiet;
    const fs::path file = place(path);
    prepare(file);
    if (fs::exists(file)) {
        fs::permissions(file, fs::perms::owner_write, fs::perm_options::add);
    }
    write_whole(file, content);
    fs::permissions(file, static_cast<fs::perms>(mode));
}

void Tree::append(std::string_view path, std::string_view content) {
    const Quiet quiet;
    const fs::path file = place(path, LastLink::kFollow);
    if (!fs::exists(file)) {
        write(path, content, 0644);
        return;
    }
    const fs::perms mode = fs::status(file).permissions();
    write(path, read_whole(file) + std::string(content), static_cast<mode_t>(mode));
}

void Tree::make_link(std::string_view path, std::string_view target) {
    const Quiet quiet;
    const fs::path link = place(path);
    prepare(link);
    if (fs::exists(link)) {
        throw std::invalid_argument("\"" + std::string(path) + "\" is there already");
    }
    fs::create_symlink(target, link);
}

void Tree::remove(std::string_view path) {
    const Quiet quiet;
    const fs::path entry = place(path);
    forget_entry(entry);
    fs::remove_all(order_file(entry).parent_path());
    fs::remove_all(entry);
}

void Tree::order(std::string_view directory, const std::vector<std::string>& names) {
    const Quiet quiet;
    std::string lines;
    for (const std::string& name : names) {
        lines += name + "\n";
    }
    const fs::path file = order_file(place(directory, LastLink::kFollow));
    fs::create_directories(file.parent_path());
    write_whole(file, lines);
}

bool Tree::exists(std::string_view path) const {
    const Quiet quiet;
    return fs::exists(fs::symlink_status(place(path)));
}

std::string Tree::read(std::string_view path) const {
    const Quiet quiet;
    return read_whole(place(path, LastLink::kFollow));
}

std::string Tree::read_link(std::string_view path) const {
    const Quiet quiet;
    std::error_code none;
    return fs::read_symlink(place(path), none).string();
}

mode_t Tree::mode(std::string_view path) const {
    const Quiet quiet;
    struct stat status {};
    if (::stat(place(path, LastLink::kFollow).c_str(), &status) != 0) {
        fail_with_errno(std::string(path));
    }
    return status.st_mode & 07777U;
}

}  // namespace kxsim
