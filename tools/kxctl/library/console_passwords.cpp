#include "library/console_passwords.hpp"

#include <dlfcn.h>
#include <fmt/core.h>
#include <libvirt/libvirt.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

constexpr char kLibvirt[] = "libvirt.so.0";
constexpr unsigned kWithPasswords = VIR_DOMAIN_XML_INACTIVE | VIR_DOMAIN_XML_SECURE;

// A function of libvirt, which only commands on machines load. A simulated host in this process
// replaces libvirt's functions; its functions are found first.
template <class Function>
Function* libvirt(const char* name) {
    static void* const library = dlopen(kLibvirt, RTLD_LAZY | RTLD_GLOBAL);
    void* const function = library == nullptr ? nullptr : dlsym(RTLD_DEFAULT, name);
    if (function == nullptr) {
        throw Failure(ExitCode::kFailed, fmt::format("{} has no {}", kLibvirt, name));
    }
    return reinterpret_cast<Function*>(function);
}

#define KX_LIBVIRT(function) libvirt<decltype(function)>(#function)

struct CloseConnection {
    void operator()(virConnectPtr connection) const { KX_LIBVIRT(virConnectClose)(connection); }
};
struct FreeDomain {
    void operator()(virDomainPtr domain) const { KX_LIBVIRT(virDomainFree)(domain); }
};
struct FreeDefinition {
    void operator()(char* text) const { std::free(text); }
};
using Connection = std::unique_ptr<virConnect, CloseConnection>;
using Domain = std::unique_ptr<virDomain, FreeDomain>;
using Text = std::unique_ptr<char, FreeDefinition>;

// The hypervisor that the library uses.
Connection connect() {
    return Connection(
        KX_LIBVIRT(virConnectOpenAuth)(nullptr, *KX_LIBVIRT(virConnectAuthPtrDefault), 0));
}

std::string read_definition(const Connection& connection, const Machine& machine) {
    if (connection) {
        const Domain domain(
            KX_LIBVIRT(virDomainLookupByUUIDString)(connection.get(), machine.uuid.c_str()));
        const Text text(
            domain ? KX_LIBVIRT(virDomainGetXMLDesc)(domain.get(), kWithPasswords) : nullptr);
        if (text) {
            return text.get();
        }
    }
    throw Failure(
        ExitCode::kFailed,
        fmt::format(
            "Cannot read the definition of {} with its passwords, which the change would remove",
            machine.title()));
}

bool define(const Connection& connection, const std::string& definition) {
    return static_cast<bool>(
        Domain(KX_LIBVIRT(virDomainDefineXML)(connection.get(), definition.c_str())));
}

struct Tag {
    std::size_t begin;
    std::size_t size;
};

// The start tags of the consoles. Values are quoted, and may contain ">".
std::vector<Tag> console_tags(std::string_view definition) {
    constexpr std::string_view kStart = "<graphics ";
    std::vector<Tag> tags;
    for (std::size_t begin = 0; (begin = definition.find(kStart, begin)) != definition.npos;) {
        std::size_t end = begin + kStart.size();
        for (char quote = '\0';
             end < definition.size() && (quote != '\0' || definition[end] != '>'); ++end) {
            const char c = definition[end];
            if (quote == '\0' ? c == '\'' || c == '"' : c == quote) {
                quote = quote == '\0' ? c : '\0';
            }
        }
        tags.push_back({begin, end - begin});
        begin = end;
    }
    return tags;
}

bool has_password(std::string_view definition) {
    const std::vector<Tag> tags = console_tags(definition);
    return std::ranges::any_of(tags, [&](const Tag& tag) {
        return definition.substr(tag.begin, tag.size).find(" passwd=") != definition.npos;
    });
}

// The later definition with the consoles of the earlier one; empty when they are not the same ones.
std::string with_consoles_of(const std::string& before, std::string after) {
    const std::vector<Tag> wanted = console_tags(before);
    const std::vector<Tag> present = console_tags(after);
    if (wanted.size() != present.size()) {
        return "";
    }
    for (std::size_t k = wanted.size(); k-- > 0;) {
        const std::string_view tag =
            std::string_view(before).substr(wanted[k].begin, wanted[k].size);
        const bool closed = after[present[k].begin + present[k].size - 1] == '/';
        const std::string_view open = tag.ends_with('/') ? tag.substr(0, tag.size() - 1) : tag;
        after.replace(present[k].begin, present[k].size, std::string(open) + (closed ? "/" : ""));
    }
    return after;
}

Failure lost_passwords(const Machine& machine) {
    return {
        ExitCode::kPartly,
        fmt::format(
            "The definition of {} was changed and lost its console passwords: set them again",
            machine.title())};
}

}  // namespace

ConsolePasswords::ConsolePasswords(const Machine& machine) : machine_(machine) {
    const AnswerLimit limit(late_answer(Effect::kNone));
    before_ = read_definition(connect(), machine);
}

void ConsolePasswords::put_back() const {
    if (!has_password(before_)) {
        return;
    }
    const AnswerLimit limit(lost_passwords(machine_));
    const Connection connection = connect();
    const std::string after = read_definition(connection, machine_);
    const std::string complete = with_consoles_of(before_, after);
    if (complete != after && (complete.empty() || !define(connection, complete))) {
        throw lost_passwords(machine_);
    }
}

}  // namespace kx::ctl
