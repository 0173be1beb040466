// Checks of the paths in scenarios: no path leads out of the simulated host, or out of the
// scenario's directory.
#pragma once

#include <string>
#include <string_view>

namespace kxsim {

// Each throws std::invalid_argument, which names the key and what was expected.

// A path on the host: it begins with "/" and has no "..".
void check_path(const std::string& path);

// A directory below another one: it does not begin with "/" and has no "..". May be empty.
void check_relative_path(std::string_view key, const std::string& path);

// The name of one file: no "/", not "." or "..". May be empty.
void check_file_name(std::string_view key, const std::string& name);

// The real file that a scenario names: it is in the scenario's directory or below it, and is a
// regular file or missing. Returns its path.
[[nodiscard]] std::string file_beside(const std::string& scenario, const std::string& name);

}  // namespace kxsim
