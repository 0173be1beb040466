// Calls of libvirt, which is loaded when the first of them is made.
//
// A function that the program or a preloaded library defines is called instead of libvirt's: this
// library refers to each by a weak name, so linkers export a program's definition of it.
//
// A connection whose daemon ended is a closed pipe: writing to it raises SIGPIPE, which would end
// an agent that does not expect it. The calls keep the signal away.
#pragma once

#include <libvirt/libvirt.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <type_traits>

#include "support/standard_streams.hpp"
#include "vm/optional_library.hpp"

namespace kx::vm {

// SIGPIPE is blocked in this thread, and one that came meanwhile is taken. One that was pending
// before stays so. Leaves errno alone.
class PipeSignalBlock {
public:
    PipeSignalBlock() {
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~PipeSignalBlock() {
        const int reason = errno;
        constexpr timespec kNow{};
        while (!was_pending_ && sigtimedwait(&signal_, nullptr, &kNow) == -1 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = reason;
    }
    PipeSignalBlock(const PipeSignalBlock&) = delete;
    PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;

private:
    static sigset_t pipe_signal() {
        sigset_t signal;
        sigemptyset(&signal);
        sigaddset(&signal, SIGPIPE);
        return signal;
    }

    const sigset_t signal_ = pipe_signal();
    sigset_t before_{};
    bool was_pending_ = false;
};

// One function of libvirt. Without libvirt it fails as libvirt's own does: null, or -1.
template <class Function>
class LibvirtFunction;

template <class Result, class... Parameters>
class LibvirtFunction<Result(Parameters...)> {
public:
    using Function = Result(Parameters...);

    constexpr LibvirtFunction(const char* name, Function* in_front) noexcept
        : name_(name), in_front_(in_front) {}

    Result operator()(Parameters... parameters) const {
        auto* const function = in_front_ != nullptr
                                   ? in_front_
                                   : reinterpret_cast<Function*>(find_in_optional_library(name_));
        if (function == nullptr) {
            return failure();
        }
        const PipeSignalBlock block;
        const StandardStreamGuard streams;  // the socket of a connection must be none of them
        return function(parameters...);
    }

private:
    static Result failure() {
        if constexpr (std::is_pointer_v<Result>) {
            return nullptr;
        } else {
            return -1;
        }
    }

    const char* name_;
    Function* in_front_;  // null when nobody but libvirt itself defines it
};

// The functions that the library uses.
// clang-format off
#define KX_LIBVIRT_FUNCTIONS(F)      \
    F(virConnectGetURI)              \
    F(virConnectListDefinedDomains)  \
    F(virConnectListDomains)         \
    F(virConnectNumOfDefinedDomains) \
    F(virConnectNumOfDomains)        \
    F(virConnectOpenAuth)            \
    F(virDomainAttachDevice)         \
    F(virDomainCreate)               \
    F(virDomainDefineXML)            \
    F(virDomainGetName)              \
    F(virDomainGetOSType)            \
    F(virDomainGetUUID)              \
    F(virDomainGetXMLDesc)           \
    F(virDomainLookupByID)           \
    F(virDomainLookupByName)         \
    F(virDomainLookupByUUID)         \
    F(virDomainReboot)               \
    F(virDomainShutdown)
// clang-format on

struct Libvirt {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a member has no parentheses around its name
#define KX_MEMBER(name) LibvirtFunction<decltype(::name)> name;
    KX_LIBVIRT_FUNCTIONS(KX_MEMBER)
#undef KX_MEMBER
};

extern const Libvirt kLibvirt;

// virConnectAuthPtrDefault; null without libvirt.
[[nodiscard]] virConnectAuthPtr default_authentication();

}  // namespace kx::vm
