// Names of commands, and the given values of their arguments.
#include "cli/command.hpp"

#include <algorithm>
#include <iterator>

namespace kx::ctl {

std::string Command::name() const {
    return *verb == '\0' ? std::string(noun) : std::string(noun) + " " + verb;
}

bool Command::only_reads() const {
    constexpr std::string_view kReadingVerbs[] = {"list", "show", "stats", "info", "config-show"};
    constexpr std::string_view kReadingNouns[] = {"history", "metrics", "report", "version"};
    return *verb == '\0' ? std::ranges::find(kReadingNouns, noun) != std::end(kReadingNouns)
                         : std::ranges::find(kReadingVerbs, verb) != std::end(kReadingVerbs);
}

void Arguments::add(std::string_view name, std::vector<std::string> values) {
    values_.insert_or_assign(std::string(name), std::move(values));
}

bool Arguments::has(std::string_view name) const { return values_.find(name) != values_.end(); }

std::string Arguments::get(std::string_view name, std::string_view otherwise) const {
    const std::span<const std::string> given = all(name);
    return given.empty() ? std::string(otherwise) : given.back();
}

std::span<const std::string> Arguments::all(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? std::span<const std::string>() : found->second;
}

}  // namespace kx::ctl
