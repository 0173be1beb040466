#include "preload/account.hpp"

#include <dlfcn.h>
#include <kxsim/preload.h>
#include <unistd.h>

#include <cstring>

#include "preload/attached.hpp"
#include "preload/export.hpp"
#include "preload/target.hpp"

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
        return nullptr;  // they would crowd out everything else
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

bool matches(
    const FaultRule& rule, Call call, const char* object, std::uint32_t command,
    const void* caller) {
    return rule.in_use.load(std::memory_order_acquire) != 0 && rule.call == call &&
           (rule.command == 0 || rule.command == command) && same_object(rule.object, object) &&
           same_origin(rule, caller);
}

// Every matching rule counts the call; the first whose turn it is decides.
int injected_error(
    Session& session, Call call, const char* object, std::uint32_t command, const void* caller) {
    int error = 0;
    for (FaultRule& rule : session.rules) {
        if (!matches(rule, call, object, command, caller)) {
            continue;
        }
        const std::uint32_t number = rule.seen.fetch_add(1, std::memory_order_relaxed) + 1;
        const bool due = number >= rule.nth && (rule.times == 0 || number - rule.nth < rule.times);
        if (due && error == 0) {
            error = rule.error;
            rule.fired.fetch_add(1, std::memory_order_relaxed);
        }
    }
    return error;
}

bool any_rule(const Session& session, Call call) {
    for (const FaultRule& rule : session.rules) {
        if (rule.in_use.load(std::memory_order_relaxed) != 0 && rule.call == call) {
            return true;
        }
    }
    return false;
}

// The host's answer to the call that this thread made last is noted in its log entry.
thread_local LoggedCall* last_logged __attribute__((tls_model("initial-exec"))) = nullptr;

int account_on(Session& session, Call call, const char* object, std::uint32_t command) {
    LoggedCall* const entry =
        window_of_this_process(session) ? count(session, call, object, command) : nullptr;
    last_logged = entry;
    const int error = injected_error(session, call, object, command, nullptr);
    if (entry != nullptr) {
        entry->error = error;
    }
    return error;
}

}  // namespace

int account(Call call, const char* object, std::uint32_t command) {
    Host* const on = host();
    if (on == nullptr) {
        return 0;
    }
    const KeepErrno keep;
    return account_on(*on->session, call, object, command);
}

int account_descriptor(Call call, int descriptor) {
    Host* const on = host();
    if (on == nullptr) {
        return 0;
    }
    const KeepErrno keep;
    Session& session = *on->session;
    if (!any_rule(session, call) && !window_of_this_process(session)) {
        return 0;
    }
    PathText path;
    static_cast<void>(simulated_path(*on, descriptor, path));
    return account_on(session, call, path.c_str(), 0);
}

void note_refusal(int error) {
    if (host() != nullptr && last_logged != nullptr) {
        last_logged->error = error;
    }
}

}  // namespace kxsim::preload

extern "C" KXSIM_EXPORT int kxsim_allocation_fails(const char* name, const void* caller) {
    using namespace kxsim::preload;
    Host* const on = host();
    if (on == nullptr || !window_of_this_process(*on->session)) {
        return 0;
    }
    const KeepErrno keep;
    const Call call = std::strcmp(name, "malloc") == 0   ? Call::kMalloc
                      : std::strcmp(name, "calloc") == 0 ? Call::kCalloc
                                                         : Call::kRealloc;
    count(*on->session, call, "", 0);
    const Pause pause;  // asking the dynamic linker may allocate
    return injected_error(*on->session, call, "", 0, caller);
}
