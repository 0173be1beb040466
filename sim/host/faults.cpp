// Fault rules and windows.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "host/beneath.hpp"
#include "host/fail_with_errno.hpp"
#include "host/host_state.hpp"
#include "host/quiet.hpp"
#include "state/calls.hpp"

namespace kxsim {
namespace {

state::Call find_call(std::string_view name) {
    const auto* const found = std::find(state::kCallNames.begin(), state::kCallNames.end(), name);
    if (found == state::kCallNames.end()) {
        throw std::invalid_argument("\"" + std::string(name) + "\" is no kind of call");
    }
    return static_cast<state::Call>(found - state::kCallNames.begin());
}

state::Call find_rule_call(std::string_view name) {
    return name == state::kFileCallsName ? state::Call::kFile : find_call(name);
}

// "SPAUSEPARAM eth2 autoneg 1 rx 0 tx 1"; empty for a call that is not a request to a driver.
std::string request_text(const state::LoggedCall& call) {
    const state::Request* const request =
        call.call == state::Call::kIoctl ? state::find_request(call.command) : nullptr;
    if (request == nullptr || call.object[0] == '\0') {
        return "";
    }
    constexpr std::string_view kPrefix = "ETHTOOL_";
    std::string_view name = request->name;
    name.remove_prefix(name.starts_with(kPrefix) ? kPrefix.size() : 0);
    std::string text = std::string(name) + " " + call.object;
    const std::uint32_t* value = call.values;
    for (const state::RequestField& field : request->fields) {
        if (field.name != nullptr) {
            text += *field.name == '\0' ? "" : std::string(" ") + field.name;
            text += " " + std::to_string(*value++);
        }
    }
    return text;
}

std::string_view name_of(state::Call call) {
    return state::kCallNames[static_cast<std::size_t>(call)];
}

}  // namespace

std::vector<std::string_view> call_names() {
    return {state::kCallNames.begin(), state::kCallNames.end()};
}

FaultRule Host::fail(const Fault& fault) {
    const state::Call call = find_rule_call(fault.call);
    if (fault.nth == 0) {
        throw std::invalid_argument("calls are counted from 1");
    }
    if (fault.error == 0 && fault.most == 0) {
        throw std::invalid_argument("a call fails with an errno, or a read or write is cut short");
    }
    const bool writes = call == state::Call::kWrite || call == state::Call::kFile;
    const bool moves_bytes = call == state::Call::kRead || call == state::Call::kWrite;
    if (fault.most != 0 && !(fault.error == 0 ? moves_bytes : writes)) {
        throw std::invalid_argument("only reads and writes are cut short, only writes fail midway");
    }
    auto& rules = state_->session->rules;
    auto* const rule = std::find_if(
        std::begin(rules), std::end(rules), [](const auto& each) { return each.in_use == 0; });
    if (rule == std::end(rules)) {
        throw std::invalid_argument("too many fault rules");
    }
    copy_field(rule->object, fault.object, "object of a fault");
    copy_field(rule->from, fault.from, "origin of a fault");
    copy_field(rule->program, fault.program, "program of a fault");
    rule->call = call;
    rule->nth = fault.nth;
    rule->times = fault.times;
    rule->error = fault.error;
    rule->most = fault.most;
    rule->command = fault.command;
    rule->seen = 0;
    rule->fired = 0;
    rule->struck[0] = '\0';
    rule->in_use = 1;
    if (!fault.program.empty()) {
        state_->session->programs_named = 1;
    }
    return {*this, static_cast<std::size_t>(rule - std::begin(rules))};
}

void Host::clear_faults() {
    for (state::FaultRule& rule : state_->session->rules) {
        rule.in_use = 0;
    }
}

unsigned FaultRule::seen() const { return host_->state_->session->rules[place_].seen; }

unsigned FaultRule::fired() const { return host_->state_->session->rules[place_].fired; }

std::string FaultRule::struck() const { return host_->state_->session->rules[place_].struck; }

void FaultRule::remove() { host_->state_->session->rules[place_].in_use = 0; }

void Host::watch_flushes() {
    state::Session& session = *state_->session;
    for (state::FlushedFile& file : session.flushed) {
        file.inode = 0;
    }
    session.flushes_watched = 1;
}

void Host::lose_unflushed() {
    state::Session& session = *state_->session;
    session.flushes_watched = 0;
    if (session.flushed[state::kMostFlushed - 1].inode != 0) {
        throw std::invalid_argument("more files were opened than are watched");
    }
    const Quiet quiet;
    const std::string top = state_->root + state::kTreeDirectory;
    const kx::Descriptor directory(::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top)) {
        struct stat status {};
        if (::lstat(entry.path().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            continue;
        }
        const auto* const file = std::find_if(
            std::begin(session.flushed), std::end(session.flushed),
            [&](const state::FlushedFile& each) { return each.inode == status.st_ino; });
        if (file != std::end(session.flushed) && status.st_size > file->size) {
            const std::string place = entry.path().string().substr(top.size());
            const kx::Descriptor opened = open_beneath(directory.get(), place, O_WRONLY);
            if (!opened || ::ftruncate(opened.get(), static_cast<off_t>(file->size.load())) != 0) {
                fail_with_errno(entry.path());
            }
        }
    }
}

void Host::open_window() {
    state::Session& session = *state_->session;
    for (auto& count : session.counts) {
        count = 0;
    }
    session.logged = 0;
    session.window_process = static_cast<std::uint32_t>(::getpid());
}

void Host::close_window() { state_->session->window_process = 0; }

Calls Host::calls() const {
    const state::Session& session = *state_->session;
    Calls calls;
    calls.counts_.assign(std::begin(session.counts), std::end(session.counts));
    const std::uint32_t kept = std::min<std::uint32_t>(session.logged, state::kMostLogged);
    for (std::uint32_t i = 0; i < kept; ++i) {
        const state::LoggedCall& entry = session.log[i];
        calls.log_.push_back(
            {std::string(name_of(entry.call)), entry.object, entry.command, entry.error});
        if (std::string request = request_text(entry); !request.empty()) {
            calls.requests_.push_back(std::move(request));
        }
    }
    return calls;
}

std::uint64_t Calls::operator[](std::string_view call) const {
    return counts_.at(static_cast<std::size_t>(find_call(call)));
}

std::vector<std::string> Calls::names(std::string_view call) const {
    const state::Call wanted = find_rule_call(call);
    std::vector<std::string> names;
    for (const LoggedCall& each : log_) {
        const state::Call made = find_call(each.call);
        if (made == wanted || (wanted == state::Call::kFile && state::is_file_call(made))) {
            names.push_back(each.call);
        }
    }
    return names;
}

std::uint64_t Calls::on(std::string_view call, std::string_view object) const {
    static_cast<void>(find_call(call));
    return static_cast<std::uint64_t>(std::count_if(
        log_.begin(), log_.end(),
        [&](const LoggedCall& each) { return each.call == call && each.object == object; }));
}

}  // namespace kxsim
