// libvirt's functions, which are there only in processes that use it: looked up when the first of
// them is called.
#pragma once

#include <libvirt/libvirt.h>

#include "process/next.hpp"

namespace kxsim::process {

// Ends the process when there is none; only users of libvirt come here.
[[nodiscard]] void* find_in_libvirt(const char* name);

// libvirt<"virDomainCreate", decltype(::virDomainCreate)>() is virDomainCreate without this
// library.
template <FunctionName kName, class Function>
[[nodiscard]] Function* libvirt() {
    return looked_up<kName, Function, find_in_libvirt>();
}

// Free memory that libvirt allocated, with the process's allocator, which may be a sanitizer's.
void free_of_process(void* block);

// A text that libvirt allocated.
class LibvirtText {
public:
    explicit LibvirtText(char* text) : text_(text) {}
    ~LibvirtText() { free_of_process(text_); }
    LibvirtText(const LibvirtText&) = delete;
    LibvirtText& operator=(const LibvirtText&) = delete;

    explicit operator bool() const { return text_ != nullptr; }
    [[nodiscard]] const char* c_str() const { return text_ == nullptr ? "" : text_; }

private:
    char* text_;
};

// A domain's handle.
class LibvirtDomain {
public:
    explicit LibvirtDomain(virDomainPtr domain) : domain_(domain) {}
    ~LibvirtDomain() {
        if (domain_ != nullptr) {
            libvirt<"virDomainFree", decltype(::virDomainFree)>()(domain_);
        }
    }
    LibvirtDomain(const LibvirtDomain&) = delete;
    LibvirtDomain& operator=(const LibvirtDomain&) = delete;

    explicit operator bool() const { return domain_ != nullptr; }
    [[nodiscard]] virDomainPtr get() const { return domain_; }

private:
    virDomainPtr domain_;
};

}  // namespace kxsim::process
