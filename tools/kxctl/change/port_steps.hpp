// Steps on the settings of ports, done with the setters of the library.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "change/step.hpp"
#include "library/host_interfaces.hpp"
#include "settings/change_line.hpp"
#include "settings/port_driver.hpp"

namespace kx::ctl {

[[nodiscard]] StepTarget step_target(const HostInterface& interface);

// The steps of a port: its lines that are not refused, in the library's order, and behind them its
// other settings with the values that they have, because a driver may change them too.
[[nodiscard]] std::vector<Step> port_steps(
    std::size_t target, std::span<const ChangeLine> lines, const PortSettings& before);

// Refuse the lines whose steps were refused.
void take_refusals(
    std::span<ChangeLine> lines, std::span<const Step> steps, std::size_t target = 0);

class PortSteps {
public:
    // Finds the port: it may have another interface name than when the change began. Throws Failure
    // (kBusy) when it is gone.
    explicit PortSteps(StepTarget target);

    // The port under its present name.
    [[nodiscard]] const StepTarget& target() const { return target_; }

    // Throws Failure (kBusy) when the interface is no longer that port.
    void check() const;

    // Whether one call does both steps.
    [[nodiscard]] static bool are_together(const Step& one, const Step& other);

    // Do the steps of one call. What is not accepted is refused. Throws Failure like check().
    void apply(std::span<Step* const> group) const;

    // Read the present values.
    void read_back(std::span<Step* const> steps) const;

    // Give the settings the values that they had before, without recording them; steps are in the
    // order of the change. What the steps have now is read back.
    void put_back(std::span<Step* const> steps) const;

    // Record which port the interface is, when one of the steps was saved.
    void record_saved(std::span<Step* const> steps) const;

private:
    // Give each step a value. Refusals are those of the library.
    void set(std::span<Step* const> group, Json Step::*value) const;

    StepTarget target_;
    PortDriver driver_;
};

// Whether a setting can be put back: it is not an action, its value before is known, and it counted
// then: the link chooses speed and duplex while auto-negotiation is on. steps: all of the port.
[[nodiscard]] bool can_put_back(const Step& step, std::span<Step* const> steps);

// Whether a step sets a value that stays; an action has none.
[[nodiscard]] bool is_lasting(const Step& step);

// Whether a step ended with another value than the one that was wanted. A number that the driver
// rounded is another value only when `exact`.
[[nodiscard]] bool differs(const Step& step, bool exact);

}  // namespace kx::ctl
