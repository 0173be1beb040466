// Words that the user may have meant.
#include "cli/suggestion.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kx::ctl::closest;
using kx::ctl::did_you_mean;

const std::vector<std::string> kWords = {"card", "port", "adapter", "vm", "vf", "version", "mtu"};

TEST(Suggestion, IsTheWordWithTheFewestMistakes) {
    EXPECT_EQ(closest("crad", kWords), "card") << "two letters swapped";
    EXPECT_EQ(closest("cards", kWords), "card");
    EXPECT_EQ(closest("prt", kWords), "port");
    EXPECT_EQ(closest("Adapter", kWords), "adapter") << "case is no mistake";
    EXPECT_EQ(closest("adaptor", kWords), "adapter");
    EXPECT_EQ(closest("vversionn", kWords), "version");
}

TEST(Suggestion, IsEmptyWhenNoWordIsSimilar) {
    for (const char* word : {"", "x", "bridge", "list", "adaption", "zzzzzzzz"}) {
        EXPECT_EQ(closest(word, kWords), "") << word;
    }
    EXPECT_EQ(closest(std::string(100000, 'a'), kWords), "") << "no time is spent on it";
    EXPECT_EQ(closest("card", {}), "");
}

TEST(Suggestion, IsAQuestion) {
    EXPECT_EQ(did_you_mean("crad", kWords), "; did you mean card?");
    EXPECT_EQ(did_you_mean("bridge", kWords), "");
}

}  // namespace
