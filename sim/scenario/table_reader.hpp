// Reads one table of a scenario: the code reads every known key once, and any key that remains is a
// mistake in the scenario.
#pragma once

#include <cstdint>
#include <functional>
#include <kxsim/scenario.hpp>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "scenario/toml.hpp"

namespace kxsim {

// A mistake at a place of the file.
[[noreturn]] void complain_at(
    const std::string& file, const toml::source_position& place, const std::string& message);

class TableReader {
public:
    // what: the name of the table in messages, such as "[[adapter]]".
    TableReader(const std::string& file, const toml::table& table, std::string what)
        : file_(file), table_(table), what_(std::move(what)) {}

    // A std::invalid_argument becomes a mistake at the key, or at the element of an array.
    using Check = std::function<void(const std::string&)>;

    // Each stores the value of a key, if the key exists.
    TableReader& text(std::string_view key, std::string& value, const Check& check = {});
    TableReader& texts(
        std::string_view key, std::vector<std::string>& values, const Check& check = {});
    TableReader& flag(std::string_view key, bool& value);
    TableReader& number(std::string_view key, std::uint64_t& value, std::uint64_t most);
    TableReader& number(std::string_view key, unsigned& value, unsigned most = UINT32_MAX);
    TableReader& numbers(std::string_view key, std::vector<unsigned>& values, unsigned most);
    TableReader& values(std::string_view key, std::map<std::string, std::string>& values);
    TableReader& error(std::string_view key, int& value);
    TableReader& request(std::string_view key, std::uint32_t& value);
    TableReader& mode(std::string_view key, mode_t& value);

    // The table that is a key's value.
    TableReader& table(std::string_view key, const std::function<void(TableReader& table)>& body);

    // Report a mistake when the key is missing.
    TableReader& required(std::string_view key);

    // A key that is read after the table was built.
    TableReader& allow(std::string_view key);

    // The tables of an array of tables, in their order.
    void tables(std::string_view key, const std::function<void(TableReader& table)>& each);

    // Report the keys that were not read.
    void finish() const;

    // Run the code that builds from this table; an exception of the builder becomes a mistake at
    // the key whose value it mentions, or else at this table.
    void build(const std::function<void()>& body) const;

    // The scenario's file, as messages name it.
    [[nodiscard]] const std::string& file() const { return file_; }

    [[nodiscard]] bool has(std::string_view key) const { return table_.contains(key); }
    [[noreturn]] void complain(std::string_view key, const std::string& message) const;

private:
    const toml::node* take(std::string_view key);
    void checked(
        const toml::source_position& place, const std::string& value, const Check& check) const;
    // Of the key, or of the table when the key is missing.
    [[nodiscard]] toml::source_position place_of(std::string_view key) const;

    const std::string& file_;
    const toml::table& table_;
    std::string what_;
    std::vector<std::string> known_;
};

}  // namespace kxsim
