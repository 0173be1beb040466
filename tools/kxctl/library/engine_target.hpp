// The offload engine of a card that a command works on.
#pragma once

#include <string>
#include <vector>

#include "cli/command.hpp"
#include "library/port.hpp"
#include "output/json.hpp"

namespace kx::ctl {

// A card with all of its ports, for commands that work on its offload engine: the library finds the
// engine by the first port that answers.
class EngineTarget {
public:
    // The card that LOCATION names. Throws Failure when a port of it does not answer (kPartly), and
    // when the library would take the engine of another card (kBusy).
    explicit EngineTarget(const Arguments& arguments);

    [[nodiscard]] const std::string& location() const { return location_; }
    [[nodiscard]] const CardInfo& record() const { return record_; }
    [[nodiscard]] const std::vector<Port>& ports() const { return ports_; }

    // The first members of every answer: location and ports.
    [[nodiscard]] Json json() const;

    // Right before a change: throws Failure as above when something is different now.
    void check_before_change() const;

    // The library's record after a change.
    [[nodiscard]] CardInfo read_again() const;

private:
    [[nodiscard]] CardInfo read_card() const;
    void check_engine() const;

    std::string location_;
    std::vector<Port> ports_;
    CardInfo record_{};
};

}  // namespace kx::ctl
