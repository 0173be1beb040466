// The adapter of a flash command: named in every way, and named in every answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kxctl/flash_changes.hpp"

namespace {

using test::FlashHost;
using testing::HasSubstr;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

class FlashNames : public testing::Test {
protected:
    FlashNames() {
        bench_.host.module({.name = "zfab4", .loaded = true});
        bench_.host.port("03:00.4", {.name = "eth2", .mac = "00:07:43:00:00:02"});
        bench_.host.port("03:00.4", {.name = "eth3", .mac = "00:07:43:00:00:03"});
        bench_.host.interface({.name = "veth2"});
    }

    // Every verb on the adapter that `name` names, changing nothing.
    [[nodiscard]] static std::vector<Words> commands(const std::string& name) {
        return {
            {"flash", "info", name},
            {"flash", "verify", name, "old-rom"},
            {"flash", "recover", name, "--dry-run"},
            {"flash", "recover", name, "--continue"},
            {"flash", "config-show", name},
            {"flash", "erase-boot", name, "--dry-run"},
            {"flash", "config-erase", name, "--dry-run"},
            {"flash", "config-default", name, "--dry-run"},
            {"flash", "config-write", name, "new-record", "--dry-run"}};
    }

    FlashHost bench_{test::kFlashChips[0]};
    const Json interfaces_ = {
        {{"interface", "eth2"}, {"mac", "00:07:43:00:00:02"}},
        {{"interface", "eth3"}, {"mac", "00:07:43:00:00:03"}}};
};

TEST_F(FlashNames, EveryVerbTakesEveryNameAndNamesTheInterfaces) {
    ASSERT_EQ(bench_.run({"flash", "dump", "eth3", "old-rom", "--region", "boot"}).exit, 0);
    for (const char* name : {"03:00.4", "0000:03:00.4", "eth2", "eth3", test::kFlashSerial}) {
        for (const Words& words : commands(name)) {
            const Json reply = test::json_on(bench_.host, words);
            EXPECT_EQ(reply.at("location"), "03:00.4") << words[1];
            EXPECT_EQ(reply.at("interfaces"), interfaces_) << words[1];
        }
        EXPECT_EQ(bench_.run({"flash", "status", name}).exit, 0) << name;
    }
}

TEST_F(FlashNames, PeopleSeeTheInterfacesToo) {
    const std::string line = "eth2 (MAC 00:07:43:00:00:02), eth3 (MAC 00:07:43:00:00:03)\n";
    for (const char* verb : {"info", "config-erase", "config-show"}) {
        Words words = {"flash", verb, "eth2"};
        if (std::string_view(verb) == "config-erase") {
            words.emplace_back("--dry-run");
        }
        EXPECT_THAT(bench_.run(words).out, HasSubstr(line)) << verb;
    }
}

TEST_F(FlashNames, UnknownNamesAreNotFound) {
    for (const char* name : {"eth9", "PT2", "veth2", "09:00.4"}) {
        for (const Words& words : commands(name)) {
            EXPECT_EQ(bench_.run(words).exit, 3) << words[1] << " " << name;
        }
        EXPECT_EQ(bench_.run({"flash", "status", name}).exit, 3) << name;
    }
}

TEST_F(FlashNames, AnInterruptedChangeIsRecoveredByAnyName) {
    for (const char* name : {"eth3", test::kFlashSerial}) {
        const std::string before = bench_.whole();
        bench_.hardware().faults({.endless_write_at = 2});
        const Words write = {"flash", "write-boot", name, "new-rom", "--yes", "--no-backup"};
        ASSERT_EQ(bench_.run(write).exit, 4);
        bench_.hardware().restore_power();
        bench_.hardware().faults({});
        const Json listed = test::json_on(bench_.host, {"flash", "status", name});
        EXPECT_EQ(listed.at("changes").at(0).at("state"), "unfinished");
        const Json reply = test::json_on(bench_.host, {"flash", "recover", name, "--roll-back"});
        EXPECT_EQ(reply.at("interfaces"), interfaces_);
        EXPECT_TRUE(bench_.whole() == before);
    }
}

TEST(FlashOfACardWithoutADriver, HasNoInterfaces) {
    FlashHost bench(test::kFlashChips[2]);
    EXPECT_EQ(
        test::json_on(bench.host, {"flash", "info", "05:00.0"}).at("interfaces"), Json::array());
    EXPECT_THAT(bench.run({"flash", "info", "05:00.0"}).out, HasSubstr("Interfaces    -\n"));
}

}  // namespace
