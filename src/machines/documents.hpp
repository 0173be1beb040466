// What the private library libkxlinhw-machines.so does for VMUtils, and how it hands back what it
// reads: it calls nothing of libkxlinhw.so but the takers that it gets.
#pragma once

#include <kxlinhw/vmutils.h>

#include <cstddef>
#include <cstdint>

namespace kx::machines {

// The result of reading a description's file.
enum class Outcome {
    kRead,
    kNoDocument,
    kNoRoot,
    kParserError,  // printed; what was read before it has been handed over
};

// PCI host devices of a description, in the order of the document.
class DeviceTaker {
public:
    // Called once when there is a root, before any device.
    virtual void begin() = 0;
    // False when the device is not one of the maker's.
    virtual bool take(int32_t pci_domain, int32_t bus, int32_t slot, int32_t function) = 0;

protected:
    ~DeviceTaker() = default;
};

struct InterfaceTexts {
    const char* type;
    const char* mac;
    const char* bridge;
    const char* target_device;
    const char* model;
    const char* alias;
};

// Interfaces of a description. Items other than elements are skipped.
class InterfaceTaker {
public:
    // Called once when there is a root. False ends the reading.
    virtual bool begin(std::size_t count) = 0;
    virtual void take(std::size_t k, const InterfaceTexts& texts) = 0;

protected:
    ~InterfaceTaker() = default;
};

class Documents {
public:
    // What the constructor and the destructor of VMUtils do.
    virtual void set_up(VMUtils& vm) const = 0;
    virtual void release(VMUtils& vm) const = 0;

    [[nodiscard]] virtual Outcome read_devices(
        VMUtils& vm, const char* path, DeviceTaker& taker) const = 0;
    [[nodiscard]] virtual Outcome read_interfaces(
        VMUtils& vm, const char* path, InterfaceTaker& taker) const = 0;

protected:
    ~Documents() = default;
};

inline constexpr char kEntryName[] = "kx_machine_documents";

}  // namespace kx::machines

// The only name that the private library exports.
extern "C" KX_EXPORT const kx::machines::Documents* kx_machine_documents();
