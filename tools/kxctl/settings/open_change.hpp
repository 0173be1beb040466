// The change of this host that is not finished or not confirmed, if any.
#pragma once

#include "files/journal.hpp"

namespace kx::ctl {

inline constexpr char kChangeResult[] = "result.json";  // in the directory of a change

// The journal of all changes of settings (change/record.hpp).
[[nodiscard]] Journal change_journal();

// Throws Failure (kBusy), with the command to type, when a change is open.
void refuse_open_change();

}  // namespace kx::ctl
