// Sockets, requests that name an interface, and the list of addresses.
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "models/addresses.hpp"
#include "models/interface_requests.hpp"
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

// A request that is not simulated must not get the real machine's answer.
int refuse_unknown(unsigned long request) {
    char text[160];
    std::snprintf(
        text, sizeof text,
        "kxsim: the request %#lx of network interfaces is not simulated, so it failed\n", request);
    complain(text);
    return EOPNOTSUPP;
}

// A request about interfaces. Returns an errno, or 0.
int answer_request(Host& on, int descriptor, unsigned long request, void* data) {
    if (data != nullptr && kxsim::models::names_interface(request)) {
        return answer_interface(on, descriptor, request, *static_cast<ifreq*>(data));
    }
    if (const int fault = intercept(Call::kIoctl, "", static_cast<std::uint32_t>(request));
        fault != 0) {
        return fault;
    }
    const KeepErrno keep;
    if (::fcntl(descriptor, F_GETFD) < 0) {
        return EBADF;
    }
    if (data == nullptr) {
        return EFAULT;
    }
    switch (request) {
        case SIOCGIFNAME:
            return kxsim::models::name_interface(*on.network, *static_cast<ifreq*>(data));
        case SIOCGIFCONF:
            kxsim::models::list_interfaces(*on.network, *static_cast<ifconf*>(data));
            return 0;
        default:
            return refuse_unknown(request);
    }
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
    if (on != nullptr && kxsim::models::is_interface_request(request)) {
        const int error = answer_request(*on, descriptor, request, data);
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

// The C library's own versions of these three ask the real kernel past ioctl.
unsigned if_nametoindex(const char* name) noexcept {
    Host* const on = host();
    if (on == nullptr) {
        return next<"if_nametoindex", decltype(::if_nametoindex)>()(name);
    }
    if (const int error = intercept(Call::kIoctl, name, SIOCGIFINDEX); error != 0) {
        errno = error;
        return 0;
    }
    const auto* const interface = kxsim::models::find_interface(*on->network, name);
    if (interface == nullptr) {
        errno = ENODEV;
        return 0;
    }
    return interface->index;
}

char* if_indextoname(unsigned index, char* name) noexcept {
    Host* const on = host();
    if (on == nullptr) {
        return next<"if_indextoname", decltype(::if_indextoname)>()(index, name);
    }
    int error = intercept(Call::kIoctl, "", SIOCGIFNAME);
    ifreq asked{};
    asked.ifr_ifindex = static_cast<int>(index);
    if (error == 0 && kxsim::models::name_interface(*on->network, asked) != 0) {
        error = ENXIO;
    }
    return error == 0 ? std::strcpy(name, asked.ifr_name) : refuse<char*>(error);
}

struct if_nameindex* if_nameindex() noexcept {
    Host* const on = host();
    if (on == nullptr) {
        return next<"if_nameindex", decltype(::if_nameindex)>()();
    }
    if (const int error = intercept(Call::kGetifaddrs); error != 0) {
        return refuse<struct if_nameindex*>(error);
    }
    return kxsim::models::index_interfaces(*on->network);
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
