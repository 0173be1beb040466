// The lock on the flash of one adapter. A change consists of many commands to the flash, and the
// adapter has state between them. Therefore only one process may work on a flash while it changes.
#pragma once

#include <string>

#include "files/descriptor.hpp"

namespace kx::ctl {

// Held while the object exists: by one run of kxctl that writes, or by any number that read. A host
// with a read-only file system has no lock; for reading, neither has a host on which nothing was
// ever written.
class FlashLock {
public:
    // location: the adapter as the user named it; place: its PCI location with domain. writer: the
    // command that will write, such as "flash write-boot"; empty for reading. Throws Failure:
    // kBusy, which names the owner of the lock, and kNoPermission.
    FlashLock(const std::string& location, const std::string& place, const std::string& writer);
    ~FlashLock();
    FlashLock(const FlashLock&) = delete;
    FlashLock& operator=(const FlashLock&) = delete;

private:
    Descriptor file_;
    bool writes_;
};

}  // namespace kx::ctl
