// Values that drivers round: they take sizes of rings and delays of interrupts only in steps.
#pragma once

#include <string>
#include <vector>

#include "change/plan.hpp"

namespace kx::ctl {

[[nodiscard]] bool may_be_rounded(const Setting& setting);

// Leave out of a plan what the driver rounded when it was asked for the same value before, and has
// still: asking again would change nothing. Returns a sentence for each. Uses the journal of
// changes; a user who may not read it gets the whole plan.
[[nodiscard]] std::vector<std::string> leave_out_rounded(Plan& plan);

}  // namespace kx::ctl
