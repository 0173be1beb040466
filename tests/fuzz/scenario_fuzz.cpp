// Scenario files: the whole input is the file. It loads, or is refused with a message.
#include <filesystem>
#include <kxsim/scenario.hpp>
#include <stdexcept>

#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    kxsim::Host host;
    try {
        kxsim::load_scenario_text(
            host, {reinterpret_cast<const char*>(data), size}, "scenario.toml");
    } catch (const kxsim::ScenarioError& error) {
        fuzz::require(error.what()[0] != '\0', "a refusal tells why");
    }
    return 0;
}
