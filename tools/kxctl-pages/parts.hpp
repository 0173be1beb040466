// The parts of a page or a completion that come from kxctl's tables, each in the language of the
// program that reads it.
#pragma once

#include <string>
#include <string_view>

namespace kx::pages {

// The part for a line "@NAME@" of a template. Throws std::runtime_error for an unknown name.
[[nodiscard]] std::string part(std::string_view name);

// The manual page's, in the markup of scdoc(5).
[[nodiscard]] std::string man_commands();
[[nodiscard]] std::string man_options();
[[nodiscard]] std::string man_exit_codes();

// The keys of kxportparams.conf(5), in the same markup.
[[nodiscard]] std::string man_saved_settings();
// The keys of kxctl-state(5), in the same markup.
[[nodiscard]] std::string man_state_settings();

// The settings of a port in the JSON Schema of "port show": the keys that are required, and a
// property for each. Every line ends in a comma.
[[nodiscard]] std::string port_setting_keys();
[[nodiscard]] std::string port_setting_schemas();

// The rows of the completions: what may follow the words of each command.
[[nodiscard]] std::string bash_rows();
[[nodiscard]] std::string zsh_rows();
[[nodiscard]] std::string fish_rows();

}  // namespace kx::pages
