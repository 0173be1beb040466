// Numbers of things in sentences.
#include "output/counted.hpp"

#include <gtest/gtest.h>

#include "kxctl/on_host.hpp"

namespace {

using kx::ctl::counted;

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

}  // namespace
