// Numbers of things in sentences.
#include "output/counted.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "kxctl/every_command.hpp"
#include "kxctl/on_host.hpp"

namespace {

using kx::ctl::counted;
using testing::IsEmpty;

TEST(Counted, HasTheFormOfTheNumber) {
    EXPECT_EQ(counted(0, "card"), "0 cards");
    EXPECT_EQ(counted(1, "card"), "1 card");
    EXPECT_EQ(counted(2, "card"), "2 cards");
}

TEST(Counted, IsUsedByTheReport) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1", .loaded = true});
    host.adapter({.chip = "Q4", .location = "04:00.4"});
    const std::string file = testing::TempDir() + "counted.html";
    EXPECT_EQ(test::run_on(host, {"report", "--html", file}).out.substr(0, 8), "1 card, ");
}

// "1 ports" and "2 port" in a text.
std::vector<std::string> wrong_forms(const std::string& text) {
    static const std::string things =
        "(adapter|address|byte|card|change|counter|driver|failure|field|file|function|interface|"
        "line|link|machine|module|parameter|port|problem|reason|region|row|second|sector|setting)";
    static const std::regex wrong(
        "(^|[^0-9A-Za-z.])(1 " + things + "e?s|(0|[2-9]|[1-9][0-9]+) " + things + ")($|[^a-z_-])");
    std::vector<std::string> found;
    for (std::sregex_iterator each(text.begin(), text.end(), wrong); each != std::sregex_iterator();
         ++each) {
        found.push_back(each->str());
    }
    return found;
}

TEST(Counted, WrongFormsAreFound) {
    EXPECT_EQ(wrong_forms("1 ports").size(), 1U);
    EXPECT_EQ(wrong_forms("there are 0 card.").size(), 1U);
    EXPECT_EQ(wrong_forms("12 sector, 1 links\n").size(), 2U);
    EXPECT_THAT(wrong_forms("1 port, 2 ports, 10.1 cards, eth1 ports_x, 0 cards"), IsEmpty());
}

TEST(Counted, IsUsedInEveryKeptOutput) {
    for (const auto& file : std::filesystem::directory_iterator(KXCTL_GOLDEN_DIRECTORY)) {
        std::ifstream stream(file.path());
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        EXPECT_THAT(wrong_forms(text), IsEmpty()) << file.path();
    }
}

// Of everything one, and none of the rest.
TEST(Counted, IsUsedByEveryCommandOnASmallHost) {
    const test::ExampleDirectory directory;
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1", .loaded = true});
    host.adapter({.chip = "Q4", .location = "03:00.4", .ports = {{.name = "eth2"}}});
    const auto attached = host.attach();
    for (const kx::ctl::Command& command : kx::ctl::commands()) {
        for (std::vector<std::string> words : {test::example_of(command)}) {
            std::erase_if(words, [](const std::string& word) { return word.starts_with("--sim"); });
            const test::Result result = test::run(words);
            EXPECT_THAT(wrong_forms(result.out + result.err), IsEmpty()) << command.name();
        }
    }
}

}  // namespace
