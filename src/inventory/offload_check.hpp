// Whether a card has an offload engine.
#pragma once

#include <kxlinhw/records.h>

#include <optional>
#include <string>

namespace kx::inventory {

// The Q3 offload driver's device list, read once for all cards of a fill.
class OffloadDevices {
public:
    OffloadDevices();

    // Set a card's offload device text from the name of its first port.
    void name_device(CardInfo& card, const char* port_name) const;

private:
    bool exists_;
    std::optional<std::string> content_;
};

}  // namespace kx::inventory
