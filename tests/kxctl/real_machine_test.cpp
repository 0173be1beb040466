// kxctl on this machine: compared with other tools, and for adapters that it does not have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "kxctl/process.hpp"
#include "support/shell.hpp"

namespace {

using Json = nlohmann::json;

bool has_adapter() {
    std::ostringstream line;
    line << "lspci -n -d " << std::hex << KXLINHW_PCI_VENDOR_ID << ": 2>/dev/null";
    return !test::shell(line.str()).output.empty();
}

// For a kernel that does not list its modules, the drivers count as loaded.
bool may_have_a_driver() {
    std::ifstream modules("/proc/modules");
    std::ostringstream text;
    text << modules.rdbuf();
    return !modules.is_open() || text.str().find("zfab") != std::string::npos ||
           std::filesystem::exists("/proc/net/zfab3");
}

TEST(MachineWithoutAdapters, IsToldSoAndPointedToTheSimulatedOne) {
    if (has_adapter()) {
        GTEST_SKIP() << "this machine has a Kestrix adapter";
    }
    const int status = may_have_a_driver() ? 60 : 62;
    const std::string text =
        status == 60 ? "No Kestrix cards" : "Kestrix driver not loaded/installed";
    const test::Result cards = test::run({"card", "list"});
    EXPECT_EQ(cards.exit, 0);
    EXPECT_EQ(
        cards.err,
        "kxctl: This host has no Kestrix adapter (--sim runs the command on a simulated host)\n");
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"port", "list", "03:00.4"}, {"port", "list", "04:00.4"}}) {
        const test::Result people = test::run(words);
        EXPECT_EQ(people.exit, 3);
        EXPECT_EQ(people.out, "");
        EXPECT_EQ(
            people.err, "kxctl: " + text +
                            "; \"kxctl adapter list\" also shows adapters without a driver (--sim "
                            "runs the command on a simulated host)\n");

        std::vector<std::string> json_words = words;
        json_words.emplace_back("--json");
        const test::Result machines = test::run(json_words);
        EXPECT_EQ(machines.exit, 3);
        EXPECT_EQ(
            Json::parse(machines.out),
            Json(
                {{"error",
                  {{"code", 3}, {"status", status}, {"text", text}, {"detail", Json::array()}}}}));
    }
}

// kxctl over the library that knows this machine's own network adapter.
class NativeAdapter : public testing::Test {
protected:
    void SetUp() override {
        const test::Result result = run({"card", "list", "--json"});
        if (result.exit == 3) {
            GTEST_SKIP() << "this machine has no PCI network adapter";
        }
        ASSERT_EQ(result.exit, 0) << result.err;
        cards_ = Json::parse(result.out).at("cards");
    }

    static test::Result run(std::vector<std::string> words) {
        test::Setup setup;
        setup.program = KXCTL_NATIVE_PROGRAM;
        return test::run(std::move(words), setup);
    }

    Json cards_;
};

TEST_F(NativeAdapter, IsListedAsLspciListsIt) {
    for (const Json& card : cards_) {
        const auto location = card.at("location").get<std::string>();
        const std::string line = test::shell("lspci -n -s " + location + " 2>/dev/null").output;
        std::ostringstream ids;
        ids << std::hex << std::setfill('0') << std::setw(4) << card.at("vendor_id").get<unsigned>()
            << ':' << std::setw(4) << card.at("device_id").get<unsigned>();
        EXPECT_THAT(line, testing::StartsWith(location + " "));
        EXPECT_THAT(line, testing::HasSubstr(ids.str()));
    }
    EXPECT_FALSE(cards_.empty());
}

TEST_F(NativeAdapter, ShowsALineForEachCardToPeople) {
    const std::vector<std::string> lines = test::lines_of(run({"card", "list"}).out);
    ASSERT_EQ(lines.size(), cards_.size() + 1);
    for (std::size_t k = 0; k < cards_.size(); ++k) {
        EXPECT_THAT(
            lines[k + 1], testing::StartsWith(cards_[k].at("location").get<std::string>() + "  "));
    }
}

TEST_F(NativeAdapter, HasItsPortsAsIpShowsThem) {
    int found = 0;
    for (const Json& card : cards_) {
        const auto location = card.at("location").get<std::string>();
        const test::Result result = run({"port", "list", location, "--json"});
        if (card.at("port_count") == 0) {
            EXPECT_EQ(result.exit, 3);
            EXPECT_EQ(Json::parse(result.out).at("error").at("status"), 72);
            continue;
        }
        const Json reply = Json::parse(result.out);
        EXPECT_EQ(reply.at("location"), location);
        EXPECT_EQ(reply.at("ports").size(), card.at("port_count"));
        for (const Json& port : reply.at("ports")) {
            ++found;
            const auto name = port.at("interface").get<std::string>();
            const Json link =
                Json::parse(test::shell("ip -j addr show " + name + " 2>/dev/null").output).at(0);
            EXPECT_EQ(port.at("mac"), link.at("address"));
            EXPECT_EQ(port.at("mtu"), link.at("mtu"));
            EXPECT_EQ(port.at("instance"), found);
        }
    }
    if (found == 0) {
        GTEST_SKIP() << "no interface of this machine reports the bus of its adapter";
    }
}

}  // namespace
