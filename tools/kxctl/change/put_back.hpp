// Gives this host the settings and files that it had before a change.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "change/record.hpp"

namespace kx::ctl {

// Which settings are put back beside those that were asked for: all that differ now, those that
// the change is known to have changed, or none (after a restart of the machine).
enum class Beside : std::uint8_t { kAll, kChanged, kNone };

// The steps of a target whose settings are put back; also those that say whether others count.
[[nodiscard]] std::vector<Step*> concerned_steps(
    ChangeRecord& record, std::size_t target, Beside beside);

// A value for people: "9000", "on", "not known".
[[nodiscard]] std::string value_text(const Step& step, const Json& value);

// The same for JSON.
[[nodiscard]] Json value_json(const Step& step, const Json& value);

// What could not be put back: "eth2: mtu is 9000, it was 1500". Empty when all is as before. The
// values of the steps are those read back.
[[nodiscard]] std::vector<std::string> put_back(ChangeRecord& record, Beside beside);

}  // namespace kx::ctl
