#include "vm/libvirt_call.hpp"

// NOLINTBEGIN(bugprone-macro-parentheses, readability-redundant-declaration): libvirt declares them
// as strong names.
#define KX_WEAK(name) extern "C" __attribute__((weak)) decltype(::name) name;
KX_LIBVIRT_FUNCTIONS(KX_WEAK)
#undef KX_WEAK
extern "C" __attribute__((weak)) decltype(::virConnectAuthPtrDefault) virConnectAuthPtrDefault;
// NOLINTEND(bugprone-macro-parentheses, readability-redundant-declaration)

namespace kx::vm {

const Libvirt kLibvirt = {
#define KX_FUNCTION(name) {#name, &::name},
    KX_LIBVIRT_FUNCTIONS(KX_FUNCTION)
#undef KX_FUNCTION
};

virConnectAuthPtr default_authentication() {
    const auto* place = &::virConnectAuthPtrDefault;
    if (place == nullptr) {
        place = static_cast<const virConnectAuthPtr*>(
            find_in_optional_library("virConnectAuthPtrDefault"));
    }
    return place == nullptr ? nullptr : *place;
}

}  // namespace kx::vm
