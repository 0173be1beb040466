#include "report/answers.hpp"

#include <algorithm>
#include <stdexcept>

#include "failure/failure.hpp"
#include "output/output.hpp"

namespace kx::ctl {
namespace {

Verb* verb_of(std::string_view name) {
    const auto found = std::ranges::find(commands(), name, &Command::name);
    if (found == commands().end()) {
        throw std::logic_error("there is no command " + std::string(name));
    }
    return found->run;
}

}  // namespace

Json answer_of(std::string_view command, GivenWords words) {
    Arguments arguments;
    for (const auto& [name, value] : words) {
        arguments.add(name, {value});
    }
    Output output(true);
    verb_of(command)(arguments, output);
    return Json::parse(output.take());
}

Json answer_or_failure(std::string_view command, GivenWords words) {
    try {
        return answer_of(command, words);
    } catch (const std::exception& failure) {
        return {{"failure", failure.what()}};
    }
}

}  // namespace kx::ctl
