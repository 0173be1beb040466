// A failure of a call that the library, or a library below it, makes.
#pragma once

#include <cstring>
#include <kxsim/host.hpp>
#include <string>

namespace test {

struct Failure {
    const char* call;
    int error;
    const char* from = "";  // of allocations: whose
    unsigned most = 0;      // bytes that a read or write moves; it does not fail then
    unsigned times = 1;     // it and those that follow; 0: all
};

// It affects the nth call of its kind; only calls of a program, when one is named.
inline kxsim::Fault fault_of(const Failure& failure, unsigned nth, const char* program = "") {
    return {
        .call = failure.call,
        .nth = nth,
        .times = failure.times,
        .error = failure.error,
        .from = failure.from,
        .most = failure.most,
        .program = program};
}

// "read number 3 and all that follow: 1 byte", "malloc number 1: Cannot allocate memory, of kxctl"
inline std::string describe(const Failure& failure, unsigned nth) {
    std::string text = std::string(failure.call) + " number " + std::to_string(nth);
    text += failure.times == 0 ? " and all that follow" : "";
    text += failure.most != 0 ? ": " + std::to_string(failure.most) + " byte"
                              : std::string(": ") + std::strerror(failure.error);
    return text + (*failure.from == '\0' ? "" : std::string(", of ") + failure.from);
}

}  // namespace test
