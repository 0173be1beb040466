// Sockets, requests that name an interface, and the list of addresses.
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdarg>
#include <cstring>

#include "models/addresses.hpp"
#include "models/nic.hpp"
#include "preload/interception.hpp"
#include "process/attached.hpp"
#include "process/next.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face
using kxsim::state::Call;

// The values of the request are recorded before a driver changes them. Returns an errno, or 0.
int answer_interface(Host& on, int descriptor, unsigned long request, ifreq& asked) {
    char name[IFNAMSIZ + 1] = "";
    std::memcpy(name, asked.ifr_name, IFNAMSIZ);
    const std::uint32_t command = kxsim::models::command_of(request, asked);
    const int fault = intercept(Call::kIoctl, name, command);
    const void* const record =
        request == SIOCETHTOOL ? static_cast<const void*>(asked.ifr_data) : &asked;
    const kxsim::state::Request* const known = kxsim::state::find_request(command);
    if (known != nullptr && record != nullptr) {
        note_request(*known, record);
    }
    if (fault != 0) {
        return fault;
    }
    const KeepErrno keep;
    const int error =
        ::fcntl(descriptor, F_GETFD) < 0 ? EBADF : kxsim::models::answer(on, request, asked);
    if (error != 0) {
        note_refusal(error);
    }
    return error;
}

// Tools that prefer netlink, which would reach the real kernel, fall back to requests that are
// answered here.
bool speaks_to_real_drivers(int domain, int protocol) {
    return domain == AF_NETLINK && protocol == NETLINK_GENERIC;
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const data = va_arg(arguments, void*);
    va_end(arguments);
    Host* const on = host();
    if (on != nullptr && data != nullptr && kxsim::models::is_interface_request(request)) {
        const int error = answer_interface(*on, descriptor, request, *static_cast<ifreq*>(data));
        return error == 0 ? 0 : refuse<int>(error);
    }
    if (const int error = intercept(Call::kIoctl, "", static_cast<std::uint32_t>(request));
        error != 0) {
        return refuse<int>(error);
    }
    return next<"ioctl", decltype(::ioctl)>()(descriptor, request, data);
}

int socket(int domain, int type, int protocol) noexcept {
    if (const int error = intercept(Call::kSocket); error != 0) {
        return refuse<int>(error);
    }
    if (host() != nullptr && speaks_to_real_drivers(domain, protocol)) {
        return refuse<int>(EPROTONOSUPPORT);
    }
    return next<"socket", decltype(::socket)>()(domain, type, protocol);
}

int getifaddrs(ifaddrs** list) noexcept {
    Host* const on = host();
    if (on == nullptr) {
        return next<"getifaddrs", decltype(::getifaddrs)>()(list);
    }
    int error = intercept(Call::kGetifaddrs);
    if (error == 0) {
        *list = kxsim::models::list_addresses(*on->network);
        error = *list == nullptr && on->network->count > 0 ? ENOMEM : 0;
    }
    return error == 0 ? 0 : refuse<int>(error);
}

#pragma GCC visibility pop

}  // extern "C"
