// The lock on the flash of one adapter. A change takes many commands to the flash, between which
// the adapter remembers what was sent: whoever changes a flash has to be alone with it.
#pragma once

#include <string>

#include "files/descriptor.hpp"

namespace kx::ctl {

// Held while it lives: by one run of kxctl that writes, or by any number that read. A host on which
// nothing may be written has no lock, nor has one on which nothing was ever written, for reading.
class FlashLock {
public:
    // location: as the user named the adapter; place: its PCI location with domain. writer: the
    // command that is to write, such as "flash write-boot"; empty for one that reads. Throws
    // Failure: kBusy, telling who holds the lock, and kNoPermission.
    FlashLock(const std::string& location, const std::string& place, const std::string& writer);
    ~FlashLock();
    FlashLock(const FlashLock&) = delete;
    FlashLock& operator=(const FlashLock&) = delete;

private:
    Descriptor file_;
    bool writes_;
};

}  // namespace kx::ctl
