#include "report/answers.hpp"

#include <algorithm>
#include <stdexcept>

#include "failure/failure.hpp"
#include "failure/unread.hpp"
#include "output/output.hpp"

namespace kx::ctl {
namespace {

const Command& command_named(std::string_view name) {
    const auto found = std::ranges::find(commands(), name, &Command::name);
    if (found == commands().end()) {
        throw std::logic_error("there is no command " + std::string(name));
    }
    return *found;
}

// What the command is about may just not be there.
bool is_absence(const std::exception& failure) {
    const auto* const known = dynamic_cast<const Failure*>(&failure);
    return known != nullptr &&
           (known->code() == ExitCode::kNotFound || known->code() == ExitCode::kNotSupported);
}

Json failed_answer(const std::exception& failure) {
    Json answer = {{"failure", failure.what()}, {"absent", is_absence(failure)}};
    Incomplete incomplete;
    incomplete.add(take_unread_reasons());
    incomplete.put_into(answer);
    return answer;
}

}  // namespace

Json answer_of(std::string_view command, GivenWords words) {
    Arguments arguments;
    for (const auto& [name, value] : words) {
        arguments.add(name, {value});
    }
    Output output(true);
    output.tell_unread();
    command_named(command).run(arguments, output);
    return Json::parse(output.take());
}

Json answer_or_failure(std::string_view command, GivenWords words) {
    try {
        return answer_of(command, words);
    } catch (const std::exception& failure) {
        return failed_answer(failure);
    }
}

}  // namespace kx::ctl
