#include "preload/interception.hpp"

#include <dlfcn.h>
#include <kxsim/preload.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "preload/target.hpp"
#include "process/attached.hpp"
#include "process/owned_paths.hpp"

namespace kxsim::preload {
namespace {

using state::Call;
using state::FaultRule;
using state::LoggedCall;
using state::Session;

bool window_of_this_process(const Session& session) {
    const std::uint32_t process = session.window_process.load(std::memory_order_relaxed);
    return process != 0 && process == static_cast<std::uint32_t>(::getpid());
}

void copy_object(char (&field)[state::kObjectSize], const char* object) {
    const std::size_t length = strnlen(object, sizeof field - 1);
    std::memcpy(field, object, length);
    field[length] = '\0';
}

LoggedCall* count(Session& session, Call call, const char* object, std::uint32_t command) {
    session.counts[static_cast<std::size_t>(call)].fetch_add(1, std::memory_order_relaxed);
    if (state::is_allocation(call)) {
        return nullptr;  // they would fill the log
    }
    const std::uint32_t place = session.logged.fetch_add(1, std::memory_order_relaxed);
    if (place >= state::kMostLogged) {
        return nullptr;
    }
    LoggedCall& entry = session.log[place];
    entry.call = call;
    entry.error = 0;
    entry.command = command;
    copy_object(entry.object, object);
    return &entry;
}

bool same_object(const char (&pattern)[state::kObjectSize], const char* object) {
    const std::size_t length = strnlen(pattern, sizeof pattern);
    if (length == 0) {
        return true;
    }
    return pattern[length - 1] == '*' ? std::strncmp(pattern, object, length - 1) == 0
                                      : std::strcmp(pattern, object) == 0;
}

bool same_origin(const FaultRule& rule, const void* caller) {
    if (rule.from[0] == '\0') {
        return true;
    }
    Dl_info object{};
    return caller != nullptr && dladdr(caller, &object) != 0 && object.dli_fname != nullptr &&
           std::strstr(object.dli_fname, rule.from) != nullptr;
}

// Allocations fail in the process whose window is open, or in a program that the rule names.
bool concerns_this_process(const Session& session, const FaultRule& rule) {
    return rule.program[0] == '\0'
               ? !state::is_allocation(rule.call) || window_of_this_process(session)
               : std::strncmp(
                     rule.program, program_invocation_short_name, sizeof rule.program - 1) == 0;
}

// Files of the kernel are always read and written completely.
bool concerns_object(const FaultRule& rule, const char* object) {
    return same_object(rule.object, object) && (rule.error != 0 || !is_kernel_path(object));
}

bool concerns_call(const FaultRule& rule, Call call) {
    return rule.call == call || (rule.call == Call::kFile && state::is_file_call(call));
}

bool matches(
    const Session& session, const FaultRule& rule, Call call, const char* object,
    std::uint32_t command, const void* caller) {
    return rule.in_use.load(std::memory_order_acquire) != 0 && concerns_call(rule, call) &&
           (rule.command == 0 || rule.command == command) && concerns_this_process(session, rule) &&
           concerns_object(rule, object) && same_origin(rule, caller);
}

// Every matching rule counts the call; the first rule that applies decides. Null: the call
// continues.
const FaultRule* due_rule(
    Session& session, Call call, const char* object, std::uint32_t command, const void* caller) {
    const FaultRule* decides = nullptr;
    for (FaultRule& rule : session.rules) {
        if (!matches(session, rule, call, object, command, caller)) {
            continue;
        }
        const std::uint32_t number = rule.seen.fetch_add(1, std::memory_order_relaxed) + 1;
        const bool due = number >= rule.nth && (rule.times == 0 || number - rule.nth < rule.times);
        if (due && decides == nullptr) {
            decides = &rule;
            copy_object(rule.struck, object);
            rule.fired.fetch_add(1, std::memory_order_relaxed);
        }
    }
    return decides;
}

bool any_rule(const Session& session, Call call) {
    for (const FaultRule& rule : session.rules) {
        if (rule.in_use.load(std::memory_order_relaxed) != 0 && concerns_call(rule, call)) {
            return true;
        }
    }
    return false;
}

int error_of(const FaultRule* rule) { return rule == nullptr ? 0 : rule->error; }

// Stores the host's answer to this thread's last call in its log entry.
thread_local LoggedCall* last_logged __attribute__((tls_model("initial-exec"))) = nullptr;

const FaultRule* intercept_on(
    Session& session, Call call, const char* object, std::uint32_t command) {
    LoggedCall* const entry =
        window_of_this_process(session) ? count(session, call, object, command) : nullptr;
    last_logged = entry;
    const FaultRule* const rule = due_rule(session, call, object, command, nullptr);
    if (entry != nullptr) {
        entry->error = error_of(rule);
    }
    return rule;
}

const FaultRule* intercept_on_descriptor(Call call, int descriptor) {
    Host* const on = host();
    if (on == nullptr) {
        return nullptr;
    }
    const KeepErrno keep;
    Session& session = *on->session;
    if (!any_rule(session, call) && !window_of_this_process(session)) {
        return nullptr;
    }
    PathText path;
    static_cast<void>(simulated_path(*on, descriptor, path));
    return intercept_on(session, call, path.c_str(), 0);
}

}  // namespace

int intercept(Call call, const char* object, std::uint32_t command) {
    Host* const on = host();
    if (on == nullptr) {
        return 0;
    }
    const KeepErrno keep;
    return error_of(intercept_on(*on->session, call, object, command));
}

int intercept_descriptor(Call call, int descriptor) {
    return error_of(intercept_on_descriptor(call, descriptor));
}

int intercept_transfer(Call call, int descriptor, std::size_t& size) {
    const FaultRule* const rule = intercept_on_descriptor(call, descriptor);
    if (rule != nullptr) {
        const bool moves =
            rule->error == 0 || (call == Call::kWrite && !is_kernel_path(rule->struck));
        size = moves ? std::min<std::size_t>(size, rule->most) : 0;
    }
    return error_of(rule);
}

void note_request(const state::Request& request, const void* record) {
    if (host() == nullptr || last_logged == nullptr) {
        return;
    }
    std::uint32_t* value = last_logged->values;
    for (const state::RequestField& field : request.fields) {
        if (field.name != nullptr) {
            *value++ = state::field_of(record, field);
        }
    }
}

void note_refusal(int error) {
    if (host() != nullptr && last_logged != nullptr) {
        last_logged->error = error;
    }
}

}  // namespace kxsim::preload

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face

extern "C" {

#pragma GCC visibility push(default)

int kxsim_allocation_fails(const char* name, const void* caller) {
    Host* const on = host();
    if (on == nullptr) {
        return 0;
    }
    Session& session = *on->session;
    const bool counts = window_of_this_process(session);
    if (!counts && session.programs_named == 0) {
        return 0;
    }
    const KeepErrno keep;
    const Call call = std::strcmp(name, "malloc") == 0   ? Call::kMalloc
                      : std::strcmp(name, "calloc") == 0 ? Call::kCalloc
                                                         : Call::kRealloc;
    if (counts) {
        count(session, call, "", 0);
    }
    const Pause pause;  // asking the dynamic linker may allocate
    return error_of(due_rule(session, call, "", 0, caller));
}

#pragma GCC visibility pop

}  // extern "C"
