#include "report/answers.hpp"

#include "failure/failure.hpp"
#include "output/output.hpp"

namespace kx::ctl {

Json answer_of(Verb* run, GivenWords words) {
    Arguments arguments;
    for (const auto& [name, value] : words) {
        arguments.add(name, {value});
    }
    Output output(true);
    run(arguments, output);
    return Json::parse(output.take());
}

Json answer_or_failure(Verb* run, GivenWords words) {
    try {
        return answer_of(run, words);
    } catch (const std::exception& failure) {
        return {{"failure", failure.what()}};
    }
}

}  // namespace kx::ctl
