// Scenario files: the whole input is the file. It loads, or is refused with a message.
#include <filesystem>
#include <kxsim/scenario.hpp>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "fuzz/input.hpp"

// A host is a directory, which takes longer to make than most inputs take to be read. One that was
// given no TOML document was not touched yet and serves the next input too.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static std::unique_ptr<kxsim::Host> host;
    if (host == nullptr) {
        host = std::make_unique<kxsim::Host>();
    }
    bool untouched = false;
    try {
        kxsim::load_scenario_text(
            *host, {reinterpret_cast<const char*>(data), size}, "scenario.toml");
    } catch (const kxsim::ScenarioError& error) {
        const std::string_view why = error.what();
        fuzz::require(!why.empty(), "a refusal tells why");
        untouched = why.ends_with("expected a TOML document");
    }
    if (!untouched) {
        host.reset();
    }
    return 0;
}
