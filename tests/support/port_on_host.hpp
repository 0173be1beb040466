// One interface of a simulated host, for tests of its settings.
#pragma once

#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <cstring>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace test {

constexpr char kConfFile[] = "/etc/kestrix-plexo/kxportparams.conf";

// A text that may fill its field without a NUL; the bytes after it become zero.
template <std::size_t N>
void put(char (&field)[N], std::string_view text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(text.size(), N));
}

using Lines = std::vector<std::string>;

class PortOnHost : public testing::Test {
protected:
    using Setter = int (*)(const char*, PortSettings*, uint32_t);

    PortOnHost() {
        host_.interface({.name = "eth2"});
        host_.directory("/etc/kestrix-plexo");
        clear();
    }
    ~PortOnHost() override { std::memset(errStr, 0, KX_DETAIL_SIZE); }

    void clear() {
        requests_.clear();
        std::memset(errStr, 0, KX_DETAIL_SIZE);
        host_.file(kConfFile, "");
    }

    // Call a setter group on the host; what it prints is in printed_.
    int set(Setter setter, uint32_t mask, const char* interface_name = "eth2") {
        const auto attached = host_.attach();
        int status = 0;
        kxsim::Calls calls;
        printed_ = printed([&] {
            calls = host_.count([&] { status = setter(interface_name, &settings_, mask); });
        });
        requests_.insert(requests_.end(), calls.requests().begin(), calls.requests().end());
        return status;
    }

    [[nodiscard]] const Lines& requests() const { return requests_; }
    [[nodiscard]] static std::string detail() { return errStr; }
    [[nodiscard]] std::string saved() const { return host_.read(kConfFile); }

    kxsim::Host host_;
    PortSettings settings_{};
    std::string printed_;
    Lines requests_;  // of all calls since the last clear
};

}  // namespace test
