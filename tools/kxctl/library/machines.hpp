// The virtual machines of the host, as the library lists them.
#pragma once

#include <kxlinhw/vmutils.h>

#include <optional>
#include <string>
#include <vector>

#include "failure/failure.hpp"
#include "files/scratch_directory.hpp"
#include "library/answer_limit.hpp"
#include "library/call.hpp"
#include "library/hypervisor_messages.hpp"
#include "output/json.hpp"
#include "output/table.hpp"

namespace kx::ctl {

struct Machine {
    std::int32_t id;  // libvirt's, of an active machine; -1 of others
    std::string name;
    std::string uuid;  // 32 digits, as the library expects it; empty when it is not known
    std::string os_type;
    std::int32_t state;  // KxRunState

    [[nodiscard]] bool is_active() const { return id > 0; }
    [[nodiscard]] std::string state_text() const;  // empty when it is not known
    [[nodiscard]] std::string uuid_text() const;   // as users write it
    [[nodiscard]] std::string title() const;       // "web1 (running)"
};

// All machines, in any order. Throws Failure when the hypervisor does not answer.
[[nodiscard]] std::vector<Machine> query_machines();

// The machine that a word names: by its name, its UUID (hyphens are optional) or its id. Throws
// Failure (not found) when no machine has it, or one as its name and another as its UUID or id.
[[nodiscard]] Machine find_machine(const std::string& word);

// The machine with the same UUID as it is now; nothing when it is not defined any more.
[[nodiscard]] std::optional<Machine> find_same_machine(const Machine& machine);

// Right before a change: throws Failure (busy) when the machine started, stopped or went since it
// was found.
void check_before_change(const Machine& found);

// After a change that leaves the run state as it was: when the state or the id is another one now,
// report that on standard error and return kPartly.
[[nodiscard]] ExitCode report_other_state(const Machine& before);

[[nodiscard]] Json machine_json(const Machine& machine);
[[nodiscard]] std::vector<Column> machine_columns();
[[nodiscard]] std::vector<Cell> machine_cells(const Machine& machine);

// The failure of an operation of the library, with the reasons of the library and of the
// hypervisor.
[[nodiscard]] Failure machine_failure(ExitCode code, const std::string& what);

enum class Effect { kNone, kChange };

// The failure of an operation that the hypervisor does not answer in time.
[[nodiscard]] Failure late_answer(Effect effect);

// The hypervisor answered a change; what is read after it may still be late.
void note_answered_change();

// The result of a function of the library's class, called with its messages kept out of the way.
// The process ends when the hypervisor does not answer in time.
template <class Function>
auto call_machines(Effect effect, Function function) {
    const ScratchDirectory scratch;
    const AnswerLimit limit(late_answer(effect));
    const auto result = call_library([&] {
        const HypervisorMessages messages;
        VMUtils library;
        return function(library);
    });
    if (effect == Effect::kChange) {
        note_answered_change();
    }
    return result;
}

}  // namespace kx::ctl
