// Every exported function of the flat interface, called once with arguments that an agent could
// pass, on the lab host.
#pragma once

#include <kxsim/host.hpp>
#include <span>
#include <string>
#include <string_view>

namespace test {

// With a sanitizer every call takes several times as long, so a sample is tested. The sanitizer
// reports leaks itself; its allocator keeps freed memory, so the amount of allocated memory is not
// known.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

struct EntryPoint {
    std::string_view name;
    // Calls it, and releases everything that it returns.
    void (*call)();
    // What no caller can release, according to the header; empty when there is nothing.
    std::string_view stays = {};
};

// In the order of their names.
std::span<const EntryPoint> entry_points();

// The lab host with what its callers need, attached; the adapters are scanned.
class Lab {
public:
    Lab();

    // Restore the state after a failed call: fill the table of adapters again.
    static void prepare();

    kxsim::Host& host() { return host_; }

private:
    kxsim::Host host_;
    kxsim::Attached attached_;
};

// While this object exists, standard output and standard error are dropped: the functions print by
// contract.
class Silence {
public:
    Silence();
    ~Silence();
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int output_;
    int error_;
};

// The open descriptors and mappings of this process.
struct Held {
    std::size_t descriptors;
    std::size_t mappings;  // of files of the host
    friend bool operator==(const Held&, const Held&) = default;
};
Held held(const kxsim::Host& host);

}  // namespace test
