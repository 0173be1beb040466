// The table of port settings: every row is set, saved, restored and shown under its one name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>

#include <cerrno>

#include "kxctl/on_host.hpp"
#include "settings/port_settings.hpp"

namespace {

using namespace kx::ctl;
using testing::HasSubstr;
using TestJson = nlohmann::json;

constexpr char kSavedSettings[] = "/etc/kestrix-plexo/kxportparams.conf";
constexpr char kPlace[] = "03:00.4";

bool is_saved(const Setting& setting) { return *setting.saved_as != '\0'; }

// A valid value that differs from another one.
std::int64_t value_beside(const Setting& setting, std::int64_t other) {
    if (setting.words.zero != nullptr) {
        return 1 - other;
    }
    return setting.choices.empty() ? other + 1 : setting.choices[other == setting.choices[0]];
}

class PortSetting : public testing::TestWithParam<const Setting*> {
protected:
    PortSetting() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = kPlace, .ports = {{.name = "eth2"}}});
        host_.directory("/etc/kestrix-plexo");
    }

    // The value of a setting in "port show"; 0 when no query reads it.
    std::int64_t shown(const Setting& row) {
        if (!row.is_shown()) {
            return 0;
        }
        const TestJson value = port().at(row.key);
        if (value.is_boolean()) {
            return value.get<bool>() ? 1 : 0;
        }
        return value.is_string() ? row.parse(value.get<std::string>()).value()
                                 : value.get<std::int64_t>();
    }
    TestJson port() { return test::json_on(host_, {"port", "show", kPlace, "1"}); }

    test::Result set(const std::vector<std::string>& changes) {
        std::vector<std::string> words = {"port", "set", kPlace, "1"};
        words.insert(words.end(), changes.begin(), changes.end());
        return test::run_on(host_, words);
    }

    // "key=value" for a new value, after that of the setting with which it is set.
    std::vector<std::string> change_to(std::int64_t value) {
        std::vector<std::string> changes;
        if (const Setting& leader = leader_of(setting_); &leader != &setting_) {
            changes.push_back(std::string(leader.key) + "=0");
        }
        changes.push_back(std::string(setting_.key) + "=" + std::to_string(value));
        return changes;
    }

    std::string saved_line(std::int64_t value) const {
        return std::string("eth2.") + setting_.saved_as + " = " + std::to_string(value) + "\n";
    }

    void restart() {
        host_.remove_interface("eth2");
        host_.port(kPlace, {.name = "eth2"});  // as new
    }

    const Setting& setting_ = *GetParam();
    kxsim::Host host_;
};

TEST_P(PortSetting, IsSetSavedRestoredAndShown) {
    if (!is_saved(setting_)) {
        EXPECT_EQ(set(change_to(1)).exit, 0);
        EXPECT_FALSE(host_.exists(kSavedSettings)) << "an action is not saved";
        return;
    }
    const std::int64_t fresh = shown(setting_);
    const std::int64_t wanted = value_beside(setting_, fresh);
    const test::Result result = set(change_to(wanted));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(host_.read(kSavedSettings), HasSubstr(saved_line(wanted)));
    const TestJson before = port();
    restart();
    EXPECT_EQ(shown(setting_), fresh);
    for (const TestJson& line : test::json_on(host_, {"restore"}).at("settings")) {
        EXPECT_THAT(line.at("result"), testing::AnyOf("applied", "unchanged")) << line;
        EXPECT_NO_THROW(static_cast<void>(port_setting(line.at("key").get<std::string>())));
    }
    EXPECT_EQ(port(), before);
    if (setting_.is_shown()) {
        EXPECT_EQ(shown(setting_), wanted);
    }
}

TEST_P(PortSetting, OfABusyDriverIsBusy) {
    constexpr std::uint32_t kSetters[] = {ETHTOOL_SSET,    ETHTOOL_SMSGLVL,     ETHTOOL_SRXCSUM,
                                          ETHTOOL_STXCSUM, ETHTOOL_SSG,         ETHTOOL_STSO,
                                          ETHTOOL_SGSO,    ETHTOOL_SPAUSEPARAM, ETHTOOL_SCOALESCE,
                                          SIOCSIFMTU,      ETHTOOL_NWAY_RST,    ETHTOOL_SRINGPARAM};
    for (const std::uint32_t setter : kSetters) {
        host_.refuse("eth2", setter, EBUSY);
    }
    const std::int64_t wanted =
        setting_.form == Form::kAction ? 1 : value_beside(setting_, shown(setting_));
    const test::Result result = set(change_to(wanted));
    EXPECT_EQ(result.exit, 5) << result.err;
    EXPECT_THAT(result.err, HasSubstr("Device or resource busy\n"));
}

TEST_P(PortSetting, HasTheRangeThatTheLibraryTakes) {
    std::vector<std::pair<std::int64_t, bool>> values;
    for (const std::int64_t choice : setting_.choices) {
        values.insert(values.end(), {{choice, true}, {choice + 1, false}});
    }
    if (setting_.range.is_limited()) {
        const auto [least, most] = setting_.range;
        values.insert(
            values.end(), {{least - 1, false}, {least, true}, {most, true}, {most + 1, false}});
    }
    if (setting_.words.zero != nullptr) {
        values.insert(values.end(), {{0, true}, {1, true}, {2, false}});
    }
    if (setting_.limit != kNoLimit && !setting_.range.is_limited()) {
        const auto limit = port().at(std::string(setting_.key) + "_maximum").get<std::int64_t>();
        values.insert(values.end(), {{limit, true}, {limit + 1, false}});
    }
    for (const auto& [value, taken] : values) {
        const test::Result result = set(change_to(value));
        EXPECT_EQ(result.exit == 0, taken) << setting_.key << "=" << value << ": " << result.err;
    }
}

TEST_P(PortSetting, IsDescribedForPeopleAndPrograms) {
    EXPECT_STRNE(setting_.help, "");
    EXPECT_EQ(setting_.setter != nullptr, true);
    EXPECT_EQ(is_saved(setting_), setting_.form != Form::kAction);
    if (is_saved(setting_)) {
        EXPECT_STRNE(setting_.title, "");
        EXPECT_EQ(saved_port_setting(setting_.saved_as), &setting_);
    }
    const TestJson answer = port();
    EXPECT_EQ(answer.contains(setting_.key), setting_.is_shown());
    if (setting_.is_shown()) {
        const test::Result text = test::run_on(host_, {"port", "show", kPlace, "1"});
        EXPECT_THAT(text.out, HasSubstr(std::string("\n") + setting_.title + "  "));
    }
}

std::vector<const Setting*> all_port_settings() {
    std::vector<const Setting*> all;
    for (const Setting& setting : port_settings()) {
        all.push_back(&setting);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(
    Table, PortSetting, testing::ValuesIn(all_port_settings()),
    [](const auto& row) { return std::string(row.param->key); });

}  // namespace
