// Every exported function of the flat interface, called once with arguments that an agent could
// pass, on the lab host.
#pragma once

#include <kxsim/host.hpp>
#include <span>
#include <string>
#include <string_view>

namespace test {

// Under a sanitizer every call takes several times as long: a sample has to do. The sanitizer then
// tells what leaks; how much is allocated cannot be asked of an allocator that keeps what is freed.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

struct EntryPoint {
    std::string_view name;
    // Calls it, and releases all that it hands out.
    void (*call)();
    // What no caller can release, as the header says; empty when there is nothing.
    std::string_view stays = {};
};

// In the order of their names.
std::span<const EntryPoint> entry_points();

// The lab host with what its callers need, attached; the adapters are scanned.
class Lab {
public:
    Lab();

    // Make good what a failing call left: fill the table of adapters again.
    static void prepare();

    kxsim::Host& host() { return host_; }

private:
    kxsim::Host host_;
    kxsim::Attached attached_;
};

// Standard output and standard error go nowhere while it lives: the functions print by contract.
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

// What this process has open and mapped.
struct Held {
    std::size_t descriptors;
    std::size_t mappings;  // of files of the host
    friend bool operator==(const Held&, const Held&) = default;
};
Held held(const kxsim::Host& host);

}  // namespace test
