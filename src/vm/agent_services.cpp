#include "vm/agent_services.hpp"

namespace kx::vm {

bool connect(virConnectPtr& connection) {
    try {
        connection = VMUtils::getConnection();
        return true;
    } catch (int) {
        return false;
    }
}

std::optional<std::string> run(const std::string& command) {
    std::string output;
    if (BridgeUtils::getControl()->getOutput(command, output) != 0) {
        return std::nullopt;
    }
    return output;
}

}  // namespace kx::vm
