// The live view of counters: its graphs and frames, and what a terminal gets.
#include "output/live_view.hpp"

#include <gmock/gmock.h>

#include "kxctl/on_host.hpp"
#include "kxctl/terminal.hpp"

namespace {

using namespace kx::ctl;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Rates = std::vector<std::optional<double>>;

TEST(Graph, GrowsToTheGreatestRate) {
    EXPECT_EQ(graph_of(Rates{0, 1, 2, 3, 4, 5, 6, 7}), "▁▂▃▄▅▆▇█");
    EXPECT_EQ(graph_of(Rates{std::nullopt, 1e18, 0}), " █▁");
    EXPECT_EQ(graph_of(Rates{0, 0}), "▁▁");
    EXPECT_EQ(graph_of(Rates{}), "");
}

TEST(RateHistory, KeepsTheLatestOfEachRow) {
    RateHistory history;
    history.add("a", 700);
    for (std::size_t k = 0; k < RateHistory::kLength; ++k) {
        history.add("a", 1);
    }
    history.add("b", std::nullopt);
    std::string full;
    for (std::size_t k = 0; k < RateHistory::kLength; ++k) {
        full += "█";
    }
    EXPECT_EQ(history.graph("a"), full);
    EXPECT_EQ(history.graph("b"), " ");
    EXPECT_EQ(history.graph("c"), "");
}

TEST(Drawing, ClearsOnceAndThenGoesHome) {
    EXPECT_EQ(
        drawing("one\ntwo\n", 24, true),
        "\033[2J\033[H\033[?7lone\033[K\ntwo\033[K\n\033[J\033[?7h");
    EXPECT_THAT(drawing("one\n", 24, false), StartsWith("\033[H"));
}

TEST(Drawing, FitsTheTerminal) {
    EXPECT_THAT(drawing("1\n2\n3\n", 4, false), Not(HasSubstr("more")));
    const std::string cut = drawing("1\n2\n3\n4\n", 4, false);
    EXPECT_EQ(cut, "\033[H\033[?7l1\033[K\n2\033[K\nand 2 more\033[K\n\033[J\033[?7h");
    EXPECT_NO_THROW(static_cast<void>(drawing("1\n2\n3\n4\n", 0, false)));
}

// What kxctl draws on a terminal of that kind.
std::string screen_of(
    kxsim::Host& host, const std::string& kind, const std::vector<std::string>& words) {
    const auto attached = host.attach();
    test::Terminal terminal(words, {.environment = {"TERM=" + kind}, .rows = 10});
    EXPECT_EQ(terminal.finish(), 0) << terminal.screen();
    return terminal.screen();
}

class LiveStatistics : public testing::Test {
protected:
    LiveStatistics() {
        host_.module({.name = "zfab4", .loaded = true});
        kxsim::Nic nic;
        nic.counters = {{"rx_frames", 100, 7}, {"errors", 3}};
        host_.adapter(
            {.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2", .nic = nic}}});
    }

    std::vector<std::string> words_ = {"port",    "stats", "03:00.4", "1",
                                       "--watch", "0.05",  "--count", "3"};
    kxsim::Host host_;
};

TEST_F(LiveStatistics, AreDrawnInPlaceOnATerminal) {
    const std::string screen = screen_of(host_, "xterm", words_);
    EXPECT_THAT(screen, StartsWith("\033[2J\033[H"));
    EXPECT_THAT(screen, HasSubstr("RATE"));
    EXPECT_THAT(screen, HasSubstr("█"));
    EXPECT_EQ(screen.find("\033[2J", 1), screen.npos) << "cleared once";
}

TEST_F(LiveStatistics, ArePlainLinesOnATerminalThatCannotAndInJson) {
    EXPECT_THAT(screen_of(host_, "dumb", words_), Not(HasSubstr("\033[H")));
    words_.emplace_back("--json");
    EXPECT_THAT(screen_of(host_, "xterm", words_), Not(HasSubstr("\033[")));
}

}  // namespace
