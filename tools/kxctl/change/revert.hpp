// Takes changes of the journal back.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "change/record.hpp"

namespace kx::ctl {

// One setting that a revert gave another value, or could not give one.
struct RevertedStep {
    std::string interface;
    Step step;      // with the value that it has now
    Json previous;  // the value that it had when the revert began
};

struct Reverted {
    unsigned number = 0;  // of the change that was taken back
    std::string command = {};
    std::vector<RevertedStep> steps = {};
    std::vector<std::string> files = {};  // that were put back
    std::vector<std::string> left = {};   // what is not as before; empty when all is
    bool closed = true;                   // whether other changes are possible again
};

// Take back the change that is not finished or not confirmed. The configuration lock must be held,
// as for the next function. Throws Failure, and it stays open then. It also stays open when
// something could not be put back, unless `force`. remark: for the history.
[[nodiscard]] Reverted revert_open(const ChangeEntry& entry, bool force, const std::string& remark);

// Take back a change that is done; that is a change of its own. Throws Failure (kBusy) when
// something was changed since, unless `force`.
[[nodiscard]] Reverted revert_done(const ChangeEntry& entry, bool force);

// For the start of the machine: take back the change that was not finished, or not confirmed before
// the machine started; nothing when there is none. Throws Failure (kBusy) when it waits since this
// start.
[[nodiscard]] std::optional<Reverted> revert_at_start();

// The state of each entry for people: a change that a later one took back is "reverted". Entries
// are those of change_entries().
[[nodiscard]] std::vector<std::string> states_of(const std::vector<ChangeEntry>& entries);

}  // namespace kx::ctl
