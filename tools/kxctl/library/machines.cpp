#include "library/machines.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <memory>

#include "cli/suggestion.hpp"
#include "failure/unread.hpp"
#include "library/machine_states.hpp"
#include "library/record_text.hpp"
#include "output/standard_streams.hpp"
#include "support/shell.hpp"

#if defined(__SANITIZE_ADDRESS__)
// By contract the class leaves handles, texts and its parser allocated.
extern "C" {
#pragma GCC visibility push(default)
const char* __lsan_default_suppressions();
const char* __lsan_default_options();
#pragma GCC visibility pop

const char* __lsan_default_suppressions() {
    return "leak:VMUtils::\nleak:libvirt\nleak:libxml2\nleak:libglib\nleak:libxerces\n";
}
const char* __lsan_default_options() { return "print_suppressions=0"; }
}
#endif

namespace kx::ctl {
namespace {

struct StateName {
    std::int32_t state;
    const char* name;
};

constexpr StateName kStateNames[] = {
    {KX_VM_RUNNING, "running"},
    {KX_VM_BLOCKED, "blocked"},
    {KX_VM_PAUSED, "paused"},
    {KX_VM_SHUT_OFF, "shut off"},
};

bool change_answered = false;

// None has a UUID of zeros.
std::string uuid_digits(const unsigned char (&bytes)[16]) {
    std::string digits;
    if (std::ranges::all_of(bytes, [](unsigned char byte) { return byte == 0; })) {
        return digits;
    }
    for (const unsigned char byte : bytes) {
        digits += fmt::format("{:02x}", byte);
    }
    return digits;
}

Machine machine_of(const _KVMInfo& record) {
    return {
        record.id, field_text(record.name), uuid_digits(record.uuid), field_text(record.osType),
        record.state};
}

// A machine without a name has an id.
std::string subject_of(const Machine& machine) {
    return machine.name.empty() ? fmt::format("the virtual machine with id {}", machine.id)
                                : "the virtual machine " + machine.name;
}

// virsh may have told a state that the library does not know.
bool is_state_missing(const Machine& machine, const MachineStates& states) {
    return machine.is_active() && machine.state_text().empty() &&
           !states.was_answered(shell_word(machine.name)) &&
           !states.was_answered(machine.uuid_text());
}

// The library leaves out what libvirt or virsh did not tell.
void note_gaps(const Machine& machine, const MachineStates& states) {
    struct Gap {
        const char* what;
        bool exists;
    };
    for (const Gap& gap :
         {Gap{"name", machine.name.empty()}, Gap{"UUID", machine.uuid.empty()},
          Gap{"type", machine.os_type.empty()}, Gap{"state", is_state_missing(machine, states)}}) {
        if (gap.exists) {
            note_missing(fmt::format("The {} of {} is not known", gap.what, subject_of(machine)));
        }
    }
}

// A user may mean a machine that lacks one of these.
bool is_nameless(const Machine& machine) { return machine.name.empty() || machine.uuid.empty(); }

Failure unknown_machine(const std::string& word) {
    return {
        ExitCode::kFailed,
        fmt::format(
            "The virtual machine {} cannot be found: libvirt did not give each name and UUID",
            word)};
}

// In lower case and without hyphens, for comparison.
std::string plain_uuid(const std::string& word) {
    std::string digits;
    for (const char c : word) {
        if (c != '-') {
            digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return digits;
}

// "web1 (running), UUID 0123..., id 1"
std::string identity_of(const Machine& machine) {
    return fmt::format(
        "{}, UUID {}{}", machine.title(), machine.uuid_text(),
        machine.is_active() ? fmt::format(", id {}", machine.id) : "");
}

bool is_id(const std::string& word, std::int32_t id) {
    std::int32_t number = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, number);
    return error == std::errc() && rest == end && id > 0 && number == id;
}

}  // namespace

std::string Machine::state_text() const {
    for (const StateName& row : kStateNames) {
        if (row.state == state) {
            return row.name;
        }
    }
    return "";
}

std::string Machine::uuid_text() const {
    const std::string_view digits = uuid;
    if (digits.empty()) {
        return "";
    }
    return fmt::format(
        "{}-{}-{}-{}-{}", digits.substr(0, 8), digits.substr(8, 4), digits.substr(12, 4),
        digits.substr(16, 4), digits.substr(20));
}

std::string Machine::title() const {
    const std::string text = state_text();
    return fmt::format("{} ({})", name, text.empty() ? "in an unknown state" : text);
}

std::vector<Machine> query_machines() {
    _KVMInfo* records = nullptr;
    int count = 0;
    const MachineStates states;
    const int result = call_machines(
        Effect::kNone, [&](VMUtils& library) { return library.listVMs(&records, &count); });
    const std::unique_ptr<_KVMInfo, decltype(&std::free)> owner(records, std::free);
    if (result != 0) {
        throw machine_failure(ExitCode::kFailed, "Cannot list the virtual machines");
    }
    std::vector<Machine> machines;
    std::transform(records, records + count, std::back_inserter(machines), machine_of);
    for (const Machine& machine : machines) {
        note_gaps(machine, states);
    }
    return machines;
}

Machine find_machine(const std::string& word) {
    const std::string uuid = plain_uuid(word);
    std::vector<Machine> found;
    std::vector<std::string> names;
    const std::vector<Machine> machines = query_machines();
    for (const Machine& machine : machines) {
        names.push_back(machine.name);
        if (machine.name == word || (!uuid.empty() && machine.uuid == uuid) ||
            is_id(word, machine.id)) {
            found.push_back(machine);
        }
    }
    if (std::ranges::any_of(found.empty() ? machines : found, is_nameless)) {
        throw unknown_machine(word);
    }
    if (found.empty()) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format("There is no virtual machine {}{}", word, did_you_mean(word, names)));
    }
    if (found.size() > 1) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format("{} may be {} or {}", word, identity_of(found[0]), identity_of(found[1])));
    }
    return found.front();
}

std::optional<Machine> find_same_machine(const Machine& machine) {
    for (const Machine& each : query_machines()) {
        if (each.uuid == machine.uuid || (each.uuid.empty() && each.name == machine.name)) {
            return each;
        }
    }
    return std::nullopt;
}

void check_before_change(const Machine& found) {
    const std::optional<Machine> now = find_same_machine(found);
    if (!now || now->id != found.id) {
        throw Failure(
            ExitCode::kBusy,
            fmt::format(
                "{} changed meanwhile: it is {} now; nothing was changed", identity_of(found),
                now ? identity_of(*now) : "not defined any more"));
    }
}

ExitCode report_other_state(const Machine& before) {
    const std::optional<Machine> after = find_same_machine(before);
    if (after && after->state == before.state && after->id == before.id) {
        return ExitCode::kDone;
    }
    complain(fmt::format(
        "{} changed its state at the same time: it is {} now", identity_of(before),
        after ? identity_of(*after) : "not defined any more"));
    return ExitCode::kPartly;
}

Json machine_json(const Machine& machine) {
    return {
        {"name", text_or_null(machine.name)},
        {"uuid", text_or_null(machine.uuid_text())},
        {"id", machine.is_active() ? Json(machine.id) : Json()},
        {"state", text_or_null(machine.state_text())},
        {"os_type", text_or_null(machine.os_type)},
    };
}

std::vector<Column> machine_columns() {
    return {{"NAME"}, {"ID", Align::kRight}, {"STATE"}, {"UUID"}};
}

std::vector<Cell> machine_cells(const Machine& machine) {
    const std::string state = machine.state_text();
    const Style style = machine.state == KX_VM_RUNNING ? Style::kGood : Style::kPlain;
    return {
        machine.name, machine.is_active() ? fmt::format("{}", machine.id) : "",
        Cell(state.empty() ? "?" : state, style), machine.uuid_text()};
}

Failure late_answer(Effect effect) {
    const char* const change = effect == Effect::kChange
                                   ? "; whether it makes the change is not known"
                               : change_answered ? "; it made the change before"
                                                 : "";
    return {
        ExitCode::kFailed,
        fmt::format(
            "The hypervisor did not answer within {} seconds{}", time_limit().count(), change)};
}

void note_answered_change() { change_answered = true; }

Failure machine_failure(ExitCode code, const std::string& what) {
    const std::string& logged = library_failure();
    const std::size_t prefix = logged.find(": ");  // the name of the library's operation
    std::string text = what;
    for (const std::string& reason :
         {prefix == logged.npos ? logged : logged.substr(prefix + 2), hypervisor_reason()}) {
        if (!reason.empty()) {
            text += ": " + reason;
        }
    }
    return {code, text};
}

}  // namespace kx::ctl
