// Virtual machines on a simulated host, for kxctl: an adapter with virtual functions on bus 4, two
// bridges, a running, a paused and a stopped machine.
#pragma once

#include <filesystem>

#include "kxctl/on_host.hpp"

namespace test {

inline constexpr char kWebUuid[] = "11223344-5566-4788-99aa-bbccddeeff01";

class MachinesOnHost : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists("/usr/bin/virsh")) {
            GTEST_SKIP() << "virsh (libvirt-clients) is not installed";
        }
        host.adapter({.chip = "Q4", .location = "04:00.4", .virtual_functions = 8});
        host.interface({.name = "br0"});
        host.interface({.name = "br1"});
        host.machine(
            {.name = "web",
             .uuid = kWebUuid,
             .state = "running",
             .vfs = {"04:01.0", "04:01.1"},
             .bridges = {"br0", "br1"}});
        host.machine({.name = "7", .state = "paused"});
        host.machine({.name = "off one", .vfs = {"04:01.0"}});
    }

    Result on(std::vector<std::string> words) { return run_on(host, std::move(words)); }
    nlohmann::json json(std::vector<std::string> words, int exit = 0) {
        return json_on(host, std::move(words), exit);
    }

    // What virsh prints on the host.
    std::string virsh(const std::string& words) {
        const auto attached = host.attach();
        test::Setup setup;
        setup.program = "sh";
        return run({"-c", "virsh " + words}, setup).out;
    }

    // A failure: its exit code, and its reason as the one line on standard error.
    void expect_failure(std::vector<std::string> words, int exit, const std::string& reason) {
        const Result result = on(std::move(words));
        EXPECT_EQ(result.exit, exit);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "kxctl: " + reason + "\n");
    }

public:
    kxsim::Host host;
};

}  // namespace test
