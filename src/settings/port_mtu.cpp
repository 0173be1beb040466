// The MTU of a port.
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <cstdlib>

#include "settings/port_setter.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

constexpr long kSmallestMtu = 22;
constexpr long kLargestMtu = 10222;
constexpr uint32_t kMtuInstance = 1;  // the value that the recording gets for every port

long mtu_of(const PortSettings& settings) {
    return std::strtol(TerminatedText(settings.mtu).c_str(), nullptr, 0);
}

}  // namespace
}  // namespace kx::settings

extern "C" int setMTU(const char* interface_name, PortSettings* settings, uint32_t) {
    using namespace kx::settings;
    if (interface_name == nullptr || settings == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, kMtuInstance);
    if (!port) {
        return kRefused;
    }
    const long mtu = mtu_of(*settings);
    if (mtu < kSmallestMtu || mtu > kLargestMtu) {
        return KX_INVALID_SET_VALUE;
    }
    if (port.request_mtu(static_cast<int>(mtu)) == -1) {
        return kRefused;
    }
    port.save("mtu", static_cast<int>(mtu));
    return KX_SUCCESS;
}
