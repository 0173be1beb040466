// Watches the calls with which the library reads the host. The library cannot tell what it could
// not read; kxctl defines these calls itself, in front of the C library, and passes them on.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace kx::ctl {

// While such an object exists, each call that fails to read what an answer depends on is noted
// (failure/unread.hpp). Objects that are missing are no failure.
class HostWatch {
public:
    HostWatch();
    ~HostWatch();
    HostWatch(const HostWatch&) = delete;
    HostWatch& operator=(const HostWatch&) = delete;
};

enum class Answered : std::uint8_t {
    kNone,    // the driver has no such thing, or nobody asked for it
    kGiven,   // the driver told it
    kUnread,  // the request failed
};

// What one driver answered to the requests about a port's state.
class DriverAnswers {
public:
    // command: ETHTOOL_GSET, for example.
    [[nodiscard]] Answered to(std::uint32_t command) const;
    // The errno of a request that failed.
    [[nodiscard]] int reason(std::uint32_t command) const;

    // As the kernel has it, in Mb/s. The library's field has 16 bits.
    [[nodiscard]] std::optional<std::uint32_t> speed_mbps() const { return speed_mbps_; }

    // reason: 0, or an errno.
    void note(std::uint32_t command, int reason);
    void note_speed(std::uint32_t mbps);

private:
    struct Answer {
        std::uint32_t command;
        int reason;
    };
    [[nodiscard]] const Answer* find(std::uint32_t command) const;

    std::vector<Answer> answers_;
    std::optional<std::uint32_t> speed_mbps_;
};

// Whether an interface could not be read that may be a port of a card.
[[nodiscard]] bool is_unread_interface();

// The answers of an interface's driver since forget_driver_answers().
[[nodiscard]] DriverAnswers driver_answers(std::string_view interface_name);
void forget_driver_answers();

// What a request asks for, such as "wake-on-LAN"; empty for a request that changes something.
[[nodiscard]] std::string_view request_text(std::uint32_t command);

// For the calls that are watched (watched_calls.cpp).
namespace host_watch {

inline constexpr char kInterfaceSocket[] = "socket for requests to interfaces";

[[nodiscard]] bool active();
// Notes a failure of the C library's memory that nobody reported.
void note_left_error();
void note_path(std::string_view path, int reason);
void note_request(std::string_view interface_name, std::uint32_t command, int reason);
void note_speed(std::string_view interface_name, std::uint32_t mbps);

}  // namespace host_watch

}  // namespace kx::ctl
