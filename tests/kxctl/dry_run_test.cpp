// --dry-run ends with the code and the reasons of the run: every port setting, on two equal hosts.
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>

#include <cerrno>

#include "kxctl/on_host.hpp"
#include "settings/port_settings.hpp"

namespace {

using namespace kx::ctl;

constexpr char kDryRunPlace[] = "03:00.4";

class DryRun : public testing::TestWithParam<const Setting*> {
protected:
    DryRun() {
        for (kxsim::Host* const host : {&planned_, &done_}) {
            host->module({.name = "zfab4", .loaded = true});
            host->adapter({.chip = "Q5", .location = kDryRunPlace, .ports = {{.name = "eth2"}}});
            host->directory("/etc/kestrix-plexo");
        }
    }

    void refuse(std::uint32_t request, int error) {
        planned_.refuse("eth2", request, error);
        done_.refuse("eth2", request, error);
    }

    std::vector<std::string> words_for(std::int64_t value) const {
        std::vector<std::string> words = {"port", "set", kDryRunPlace, "1"};
        if (const Setting& leader = leader_of(setting_); &leader != &setting_) {
            words.push_back(std::string(leader.key) + "=0");
        }
        words.push_back(std::string(setting_.key) + "=" + std::to_string(value));
        return words;
    }

    // The exit code of both.
    int both(std::int64_t value) {
        std::vector<std::string> words = words_for(value);
        const test::Result done = test::run_on(done_, words);
        words.emplace_back("--dry-run");
        const test::Result planned = test::run_on(planned_, words);
        EXPECT_EQ(planned.exit, done.exit)
            << setting_.key << "=" << value << "\nplanned: " << planned.err << "done: " << done.err;
        EXPECT_EQ(planned.err, done.err) << setting_.key << "=" << value;
        EXPECT_FALSE(planned_.exists("/etc/kestrix-plexo/kxportparams.conf"));
        return done.exit;
    }

    const Setting& setting_ = *GetParam();
    kxsim::Host planned_;
    kxsim::Host done_;
};

TEST_P(DryRun, EndsAsTheRunDoesAtTheEndsOfTheRange) {
    if (setting_.words.zero != nullptr) {
        EXPECT_EQ(both(0), 0);
        EXPECT_EQ(both(1), 0);
        EXPECT_EQ(both(2), 1);
    }
    for (const std::int64_t choice : setting_.choices) {
        EXPECT_EQ(both(choice), 0);
        EXPECT_EQ(both(choice + 1), 1);
    }
    if (setting_.range.is_limited()) {
        const auto [least, most] = setting_.range;
        EXPECT_EQ(both(least), 0);
        EXPECT_EQ(both(most), 0);
        EXPECT_NE(both(least - 1), 0);
        EXPECT_NE(both(most + 1), 0);
    }
    if (setting_.form == Form::kAction) {
        EXPECT_EQ(both(1), 0);
    }
}

TEST_P(DryRun, EndsAsTheRunDoesBeyondTheDriversMaximum) {
    if (setting_.limit == kNoLimit) {
        GTEST_SKIP() << setting_.key << " has no maximum of the driver";
    }
    for (kxsim::Host* const host : {&planned_, &done_}) {
        kxsim::Nic nic = host->nic("eth2");
        nic.rings.rx_max_pending = nic.rings.rx_mini_max_pending = 100;
        nic.rings.rx_jumbo_max_pending = nic.rings.tx_max_pending = 100;
        nic.rings.rx_pending = nic.rings.rx_mini_pending = 50;
        nic.rings.rx_jumbo_pending = nic.rings.tx_pending = 50;
        host->nic("eth2", nic);
    }
    EXPECT_EQ(both(100), 0);
    EXPECT_EQ(both(101), 1);
    for (kxsim::Host* const host : {&planned_, &done_}) {
        kxsim::Nic nic = host->nic("eth2");
        nic.rings = {};
        host->nic("eth2", nic);
    }
    EXPECT_EQ(both(1), 14) << "the driver has no such ring";
}

TEST_P(DryRun, EndsAsTheRunDoesWhenTheDriverLacksTheSetting) {
    if (setting_.reads == 0) {
        GTEST_SKIP() << setting_.key << " is there with every driver";
    }
    refuse(setting_.reads, EOPNOTSUPP);
    const std::int64_t value = setting_.choices.empty() ? 1 : setting_.choices[0];
    EXPECT_EQ(both(value), 14);
    refuse(setting_.reads, EBUSY);
    EXPECT_EQ(both(value), 5);
}

TEST_P(DryRun, EndsAsTheRunDoesWhenThePortDoesNotHaveTheSpeed) {
    if (std::string(setting_.key) != "speed") {
        GTEST_SKIP() << setting_.key << " does not depend on the port's link modes";
    }
    for (kxsim::Host* const host : {&planned_, &done_}) {
        kxsim::Nic nic = host->nic("eth2");
        nic.link_settings.supported = SUPPORTED_1000baseT_Full | SUPPORTED_10000baseT_Full;
        host->nic("eth2", nic);
    }
    EXPECT_EQ(both(1000), 0);
    EXPECT_EQ(both(100), 14);
}

std::vector<const Setting*> all_settings_of_ports() {
    std::vector<const Setting*> all;
    for (const Setting& setting : port_settings()) {
        all.push_back(&setting);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(
    Table, DryRun, testing::ValuesIn(all_settings_of_ports()),
    [](const auto& row) { return std::string(row.param->key); });

}  // namespace
