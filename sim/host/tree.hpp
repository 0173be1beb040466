// The files of a simulated host in the session's directory, and the order of their directories.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/entry_order.hpp"
#include "state/session.hpp"
#include "support/handle.hpp"

namespace kxsim {

class Tree {
public:
    explicit Tree(const std::string& root);

    void make_directory(std::string_view path);
    void write(std::string_view path, std::string_view content, mode_t mode);
    void append(std::string_view path, std::string_view content);
    void make_link(std::string_view path, std::string_view target);
    void remove(std::string_view path);
    void order(std::string_view directory, const std::vector<std::string>& names);

    [[nodiscard]] bool exists(std::string_view path) const;
    [[nodiscard]] std::string read(std::string_view path) const;
    [[nodiscard]] std::string read_link(std::string_view path) const;  // empty: there is none
    [[nodiscard]] mode_t mode(std::string_view path) const;

private:
    // A place is a path on the host on which no directory is a link; empty for the top.
    enum class LastLink { kFollow, kKeep };
    [[nodiscard]] std::string place(std::string_view path, LastLink last = LastLink::kKeep) const;
    [[nodiscard]] std::string place_of_directory(const std::string& path) const;
    [[nodiscard]] std::string follow_links(const std::string& path) const;
    // The target of a link; empty when there is none, and errno says why.
    [[nodiscard]] std::string link_at(const std::string& place) const;
    [[nodiscard]] std::string real(const std::string& place) const { return top_ + place; }

    template <class Make>
    int make_entry(const std::string& place, Make make);
    void make_directories(const std::string& place);
    // As open(); fails for a place with a link on its path (host/beneath.hpp).
    [[nodiscard]] kx::Descriptor open(const std::string& place, int flags, mode_t mode = 0) const;
    [[nodiscard]] kx::Descriptor open_existing(const std::string& place, mode_t mode) const;

    struct Identity {
        dev_t device;
        ino_t inode;
        bool operator==(const Identity&) const = default;
    };
    [[nodiscard]] static Identity identity_of(const std::string& real);  // zeros: it is missing

    std::string top_;
    kx::Descriptor directory_;  // the top
    EntryOrder order_;
    // Directories that were found at their place. Others may have replaced them meanwhile.
    mutable std::unordered_map<std::string, Identity> found_;
};

}  // namespace kxsim
