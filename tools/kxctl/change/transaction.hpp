// A change of this host as a whole: in the journal before its first step, each step read back, and
// everything taken back when a step fails.
#pragma once

#include <string>
#include <vector>

#include "change/step.hpp"

namespace kx::ctl {

struct ChangeOptions {
    bool keep_going = false;    // a step that fails does not stop the others, and nothing is undone
    bool exact = false;         // a value that a driver rounds is a failure
    double confirm_within = 0;  // seconds in which "kxctl confirm" must come; 0: nobody confirms
};

struct ChangeOutcome {
    unsigned number = 0;
    bool waits = false;                     // for "kxctl confirm"
    std::vector<Step> steps = {};           // with the values read back, and what was refused
    std::vector<std::string> unsaved = {};  // why it is not recorded which port an interface was
};

// Do the steps. The configuration lock must be held. Throws Failure: when nothing was changed, when
// everything was taken back, or (kPartly) with what could not be taken back.
ChangeOutcome run_change(
    std::vector<StepTarget> targets, std::vector<Step> steps, const ChangeOptions& options);

}  // namespace kx::ctl
