// Reading one table of a scenario: every key is asked for once, and what is left over at the end is
// a mistake of the scenario's author.
#pragma once

#include <toml++/toml.h>

#include <cstdint>
#include <functional>
#include <kxsim/scenario.hpp>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kxsim {

// A mistake at a place of the file.
[[noreturn]] void complain_at(
    const std::string& file, const toml::source_position& place, const std::string& message);

class TableReader {
public:
    // what: how messages call the table, such as "[[adapter]]".
    TableReader(const std::string& file, const toml::table& table, std::string what)
        : file_(file), table_(table), what_(std::move(what)) {}

    // What throws std::invalid_argument becomes a mistake at the value's place.
    using Check = std::function<void(const std::string&)>;

    // Each takes the value of a key, if it is there.
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

    // Complain unless the key is there.
    TableReader& required(std::string_view key);

    // A key that is read after the table was built.
    TableReader& allow(std::string_view key);

    // The tables of an array of tables, in their order.
    void tables(std::string_view key, const std::function<void(TableReader& table)>& each);

    // Complain about keys that nobody asked for.
    void finish() const;

    // Run what builds from this table; a builder's complaint becomes one at this table's place.
    void build(const std::function<void()>& body) const;

    // The scenario's file, as messages name it.
    [[nodiscard]] const std::string& file() const { return file_; }

    [[nodiscard]] bool has(std::string_view key) const { return table_.contains(key); }
    [[noreturn]] void complain(std::string_view key, const std::string& message) const;

private:
    const toml::node* take(std::string_view key);
    void checked(const toml::node& node, const std::string& value, const Check& check) const;

    const std::string& file_;
    const toml::table& table_;
    std::string what_;
    std::vector<std::string> known_;
};

}  // namespace kxsim
