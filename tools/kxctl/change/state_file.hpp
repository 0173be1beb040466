// The file of a desired state: TOML, a table [[port]] for ports with settings that are wanted of
// them. What a file does not name stays as it is.
//
//     [[port]]
//     interface = "eth2"
//     mtu = 9000
//     tso = true
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "library/pci_location.hpp"
#include "settings/setting.hpp"

namespace kx::ctl {

// A place in the file; both count from 1.
struct FilePlace {
    std::uint32_t line = 0;
    std::uint32_t column = 0;

    [[nodiscard]] bool operator==(const FilePlace&) const = default;
    [[nodiscard]] bool is_behind(const FilePlace& other) const {
        return line != other.line ? line > other.line : column > other.column;
    }
};

struct WantedSetting {
    const Setting* setting;
    std::int64_t value;
    FilePlace place;
};

// The port that a table names: everything that is given holds for it.
struct NamedPort {
    std::string interface = {};  // empty when it is not given
    std::string mac = {};        // the same; with small letters
    std::optional<PciLocation> location = {};
    std::uint32_t instance = 0;  // with a location; 0 when it is not given
};

// The ports that a table matches: patterns as of the shell, empty when not given.
struct PortPatterns {
    std::string chip = {};
    std::string model = {};
    std::string location = {};
    std::string interface = {};
};

struct PortTable {
    FilePlace place;
    std::optional<PortPatterns> patterns = {};  // nothing when it names one port
    NamedPort named = {};
    std::vector<WantedSetting> settings = {};  // in the order of the file

    // How messages name its ports, such as "interface eth2".
    [[nodiscard]] std::string subject() const;
};

struct FileError {
    FilePlace place;
    std::string text;
};

struct StateFile {
    std::string name;  // as the user wrote it
    std::vector<PortTable> ports = {};
    std::vector<FileError> errors = {};  // in the order of the file

    void add_error(FilePlace place, std::string text) {
        errors.push_back({place, std::move(text)});
    }
    void sort_errors();
    // "NAME:3:1: TEXT"
    [[nodiscard]] std::string message(FilePlace place, std::string_view text) const;
    // Throws Failure (wrong usage) when the file has errors: each is a line on standard error, and
    // all together are the error of an answer in JSON.
    void refuse_errors(bool json) const;
};

// Whether a setting is part of a state: a query of the library reads it, and it is not an action.
[[nodiscard]] bool is_state(const Setting& setting);

// What a setting can be in the file, such as "true or false".
[[nodiscard]] std::string file_values(const Setting& setting);

// Read the file's text. A text that is not TOML has one error and no table.
[[nodiscard]] StateFile parse_state_file(const std::string& name, std::string_view text);

// The same for a file of the user. Throws Failure when it cannot be read.
[[nodiscard]] StateFile read_state_file(const std::string& path);

}  // namespace kx::ctl
