// The power fails while the library rewrites a configuration file: after `kxctl repair` the file
// has its own name and the complete old or new text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <climits>
#include <set>

#include "kxctl/on_host.hpp"
#include "support/output.hpp"

namespace {

using testing::AnyOf;

constexpr unsigned kNever = UINT_MAX;

// A rewrite that was interrupted before the next start.
struct Rewrite {
    const char* file;
    const char* old_text;
    const char* new_text;
    int (*run)();
};

constexpr Rewrite kRewrites[] = {
    {"/etc/kestrix-plexo/kxportparams.conf", "eth1.gso = 1\neth1.mtu = 1500\n",
     "eth1.gso = 1\neth1.mtu = 9000\n", [] { return savePortParam("mtu", "eth1", 1, 9000); }},
    {"/etc/sysctl.conf", "toe.toe0_tom.mss = 1\n# kept\n", "toe.toe0_tom.mss = 2\n# kept\n",
     [] { return saveSysctlParam("/proc/sys/toe/toe0_tom/mss", 2); }},
};

class CutRewrite : public testing::TestWithParam<Rewrite> {
protected:
    // The calls of a rewrite that is interrupted at one of them.
    static std::vector<std::string> cut(kxsim::Host& host, unsigned nth) {
        host.directory("/etc/kestrix-plexo");
        host.file(GetParam().file, GetParam().old_text);
        const auto attached = host.attach();
        std::vector<std::string> calls;
        test::printed([&] {
            host.watch_flushes();
            host.fail(kxsim::power_cut(nth));
            calls = host.count([] { static_cast<void>(GetParam().run()); }).names("file");
            host.clear_faults();
            host.lose_unflushed();
        });
        return calls;
    }

    static nlohmann::json repair(kxsim::Host& host) {
        const nlohmann::json answer = test::json_on(host, {"repair"});
        for (const auto& file : answer["files"]) {
            if (file["file"] == GetParam().file) {
                return file;
            }
        }
        return {};
    }
};

TEST_P(CutRewrite, IsWholeAgainAfterARepair) {
    kxsim::Host undisturbed;
    const auto calls = static_cast<unsigned>(cut(undisturbed, kNever).size());
    ASSERT_EQ(undisturbed.read(GetParam().file), GetParam().new_text);
    std::set<std::string> states;
    for (unsigned nth = 1; nth <= calls; ++nth) {
        kxsim::Host host;
        cut(host, nth);
        states.insert(repair(host)["state"].get<std::string>());
        EXPECT_THAT(host.read(GetParam().file), AnyOf(GetParam().old_text, GetParam().new_text))
            << "call " << nth;
        EXPECT_EQ(repair(host)["state"], "whole") << "a second repair has nothing to do";
    }
    EXPECT_THAT(states, testing::ElementsAre("repaired", "whole"));
}

INSTANTIATE_TEST_SUITE_P(
    BothFiles, CutRewrite, testing::ValuesIn(kRewrites), [](const auto& rewrite) {
        return rewrite.param.file == kRewrites[0].file ? "Ports" : "Sysctl";
    });

}  // namespace
