// Why a hypervisor refused something. libvirt and virsh print their reasons on standard error.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "library/call.hpp"

namespace kx::ctl {

// While this object exists, what libvirt and virsh print on standard error is kept, unless the
// user sees it anyway (--verbose).
class HypervisorMessages {
public:
    HypervisorMessages();
    ~HypervisorMessages();
    HypervisorMessages(const HypervisorMessages&) = delete;
    HypervisorMessages& operator=(const HypervisorMessages&) = delete;

private:
    Descriptor kept_;
    std::optional<Redirection> errors_;
};

// The last reason that was printed while the latest object existed; empty when there was none.
[[nodiscard]] const std::string& hypervisor_reason();

// The reason in the last line "libvirt: DRIVER error : REASON" of libvirt or "error: REASON" of
// virsh; empty when there is none.
[[nodiscard]] std::string reason_in(std::string_view messages);

}  // namespace kx::ctl
