// Passwords of consoles in the definition of a machine. The library reads definitions without them,
// so that a machine that it defines again has none.
#pragma once

#include <string>

#include "library/machines.hpp"

namespace kx::ctl {

class ConsolePasswords {
public:
    // Reads the definition with its passwords. Throws Failure when libvirt does not give it.
    explicit ConsolePasswords(const Machine& machine);

    // Defines the machine again when passwords are missing now. Throws Failure when they cannot
    // be put back.
    void put_back() const;

private:
    const Machine& machine_;
    std::string before_;
};

// The result of a function of the library's class that may define the machine again.
template <class Function>
auto call_redefining(const Machine& machine, Function function) {
    const ConsolePasswords passwords(machine);
    auto result = call_machines(Effect::kChange, function);
    passwords.put_back();
    return result;
}

}  // namespace kx::ctl
