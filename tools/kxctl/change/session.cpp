#include "change/session.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <system_error>

#include "files/descriptor.hpp"

namespace kx::ctl {
namespace {

constexpr std::string_view kLowerInterface = "lower_";

std::string word_of_variable(const char* name, int nth) {
    const char* const value = std::getenv(name);
    std::istringstream words(value == nullptr ? "" : value);
    std::string word;
    for (int i = 0; i < nth; ++i) {
        word.clear();
        words >> word;
    }
    return word.substr(0, word.find('%'));  // without the scope of an IPv6 address
}

std::string text_of_address(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address != nullptr && address->sa_family == AF_INET) {
        sockaddr_in copy{};
        std::memcpy(&copy, address, sizeof copy);
        inet_ntop(AF_INET, &copy.sin_addr, text, sizeof text);
    } else if (address != nullptr && address->sa_family == AF_INET6) {
        sockaddr_in6 copy{};
        std::memcpy(&copy, address, sizeof copy);
        inet_ntop(AF_INET6, &copy.sin6_addr, text, sizeof text);
    }
    return text;
}

// The address from which this host reaches the client: nothing is sent.
std::string address_towards(const std::string& client) {
    constexpr in_port_t kAnyPort = 9;
    sockaddr_storage storage{};
    socklen_t size = 0;
    sockaddr_in four{};
    sockaddr_in6 six{};
    if (inet_pton(AF_INET, client.c_str(), &four.sin_addr) == 1) {
        four.sin_family = AF_INET;
        four.sin_port = htons(kAnyPort);
        size = sizeof four;
        std::memcpy(&storage, &four, size);
    } else if (inet_pton(AF_INET6, client.c_str(), &six.sin6_addr) == 1) {
        six.sin6_family = AF_INET6;
        six.sin6_port = htons(kAnyPort);
        size = sizeof six;
        std::memcpy(&storage, &six, size);
    } else {
        return "";
    }
    const Descriptor probe(socket(storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    auto* const address = reinterpret_cast<sockaddr*>(&storage);
    socklen_t room = sizeof storage;
    if (!probe || connect(probe.get(), address, size) != 0 ||
        getsockname(probe.get(), address, &room) != 0) {
        return "";
    }
    return text_of_address(address);
}

// The server's address is the third word of SSH_CONNECTION; SSH_CLIENT has only the client's.
std::string session_address() {
    const std::string server = word_of_variable("SSH_CONNECTION", 3);
    return server.empty() ? address_towards(word_of_variable("SSH_CLIENT", 1)) : server;
}

void add_with_lower(const std::string& name, std::set<std::string>& found) {
    if (!found.insert(name).second) {
        return;
    }
    std::error_code error;
    std::filesystem::directory_iterator entry("/sys/class/net/" + name, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string file = entry->path().filename();
        if (file.starts_with(kLowerInterface)) {
            add_with_lower(file.substr(kLowerInterface.size()), found);
        }
    }
}

}  // namespace

std::set<std::string> session_interfaces() {
    std::set<std::string> found;
    const std::string address = session_address();
    ifaddrs* first = nullptr;
    if (address.empty() || getifaddrs(&first) != 0) {
        return found;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, freeifaddrs);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (text_of_address(entry->ifa_addr) == address) {
            const std::string name = entry->ifa_name;
            add_with_lower(name.substr(0, name.find(':')), found);  // without an alias
        }
    }
    return found;
}

}  // namespace kx::ctl
