// card stats and port stats on simulated hosts.
#include <fcntl.h>
#include <gmock/gmock.h>

#include <sstream>

#include "kxctl/on_host.hpp"

namespace {

using test::json_on;
using test::run_on;
using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;

class Statistics : public testing::Test {
protected:
    Statistics() {
        host_.module({.name = "zfab4", .loaded = true});
        kxsim::Nic nic;
        nic.counters = {{"rx_frames", 100, 7}, {"errors", 3}, {"big", 0xFFFFFFFFFFFFFFFF}};
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {
                 {.name = "eth2", .mac = "02:00:00:00:00:02", .nic = nic},
                 {.name = "eth3", .mac = "02:00:00:00:00:03"}}});
        host_.file(kFile, "head\nInSegs: 20\nOutSegs: 21\n");
    }

    std::vector<Json> json_lines(std::vector<std::string> words) {
        words.emplace_back("--json");
        const test::Result result = run_on(host_, std::move(words));
        EXPECT_EQ(result.exit, 0) << result.err;
        std::vector<Json> values;
        std::istringstream stream(result.out);
        for (std::string line; std::getline(stream, line);) {
            values.push_back(Json::parse(line));
        }
        return values;
    }

    static constexpr char kFile[] = "/proc/driver/zfab4/0000:03:00.4/tcp_stats";
    kxsim::Host host_;
};

TEST_F(Statistics, OfAPortForPeople) {
    const test::Result result = run_on(host_, {"port", "stats", "03:00.4", "1"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(
        result.out,
        "Port eth2 (03:00.4 port 1, MAC 02:00:00:00:00:02)\n"
        "COUNTER                   VALUE\n"
        "rx_frames                   100\n"
        "errors                        3\n"
        "big        18446744073709551615\n");
}

TEST_F(Statistics, OfAPortForMachines) {
    EXPECT_EQ(
        json_on(host_, {"port", "stats", "03:00.4", "1"}),
        Json(
            {{"location", "03:00.4"},
             {"instance", 1},
             {"interface", "eth2"},
             {"mac", "02:00:00:00:00:02"},
             {"counters",
              {{{"name", "rx_frames"}, {"value", 100}},
               {{"name", "errors"}, {"value", 3}},
               {{"name", "big"}, {"value", 0xFFFFFFFFFFFFFFFF}}}}}));
}

TEST_F(Statistics, OfACardForPeopleAndMachines) {
    EXPECT_EQ(
        run_on(host_, {"card", "stats", "03:00.4"}).out,
        "Card 03:00.4 (eth2 MAC 02:00:00:00:00:02, eth3 MAC 02:00:00:00:00:03)\n"
        "GROUP  COUNTER  VALUE\n"
        "    2  InSegs      20\n"
        "    2  OutSegs     21\n");
    EXPECT_EQ(
        json_on(host_, {"card", "stats", "03:00.4"}),
        Json(
            {{"location", "03:00.4"},
             {"ports",
              {{{"instance", 1}, {"interface", "eth2"}, {"mac", "02:00:00:00:00:02"}},
               {{"instance", 2}, {"interface", "eth3"}, {"mac", "02:00:00:00:00:03"}}}},
             {"counters",
              {{{"group", 2}, {"name", "InSegs"}, {"value", 20}},
               {{"group", 2}, {"name", "OutSegs"}, {"value", 21}}}}}));
}

TEST_F(Statistics, OfAPortWithoutCountersAreAnEmptyList) {
    kxsim::Nic silent;
    silent.counters.clear();
    host_.nic("eth2", silent);
    EXPECT_EQ(json_on(host_, {"port", "stats", "03:00.4", "1"}).at("counters"), Json::array());
    EXPECT_EQ(
        run_on(host_, {"port", "stats", "03:00.4", "1"}).out,
        "Port eth2 (03:00.4 port 1, MAC 02:00:00:00:00:02)\n"
        "COUNTER  VALUE\n");
}

TEST_F(Statistics, OfNoSuchThingFail) {
    EXPECT_EQ(run_on(host_, {"port", "stats", "03:00.4", "3"}).exit, 3);
    EXPECT_EQ(run_on(host_, {"port", "stats", "09:00.4", "1"}).exit, 3);
    EXPECT_EQ(run_on(host_, {"card", "stats", "09:00.4"}).exit, 3);
    host_.remove("/proc/driver/zfab4");
    EXPECT_EQ(run_on(host_, {"card", "stats", "03:00.4"}).exit, 14);
}

TEST_F(Statistics, WatchedShowChangeAndRateForPeople) {
    const test::Result result =
        run_on(host_, {"port", "stats", "03:00.4", "1", "--watch", "0.1", "--count", "2"});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(
        result.out, StartsWith("Port eth2 (03:00.4 port 1, MAC 02:00:00:00:00:02)\n"
                               "COUNTER                   VALUE  CHANGE  PER SECOND\n"
                               "rx_frames                   100       -           -\n"
                               "errors                        3       -           -\n"
                               "big        18446744073709551615       -           -\n"
                               "\n"
                               "COUNTER                   VALUE  CHANGE  PER SECOND\n"
                               "rx_frames                   107       7  "));
    EXPECT_THAT(result.out, HasSubstr("\nerrors                        3       0         0.0\n"));
}

TEST_F(Statistics, WatchedAreOneLineOfJsonAReading) {
    const auto readings =
        json_lines({"port", "stats", "03:00.4", "1", "--watch", "0.2", "--count", "3"});
    ASSERT_EQ(readings.size(), 3U);
    EXPECT_TRUE(readings[0].at("elapsed_seconds").is_null());
    EXPECT_TRUE(readings[0].at("counters")[0].at("change").is_null());
    EXPECT_TRUE(readings[0].at("counters")[0].at("rate_per_second").is_null());
    for (std::size_t k = 1; k < readings.size(); ++k) {
        const auto elapsed = readings[k].at("elapsed_seconds").get<double>();
        const Json& counter = readings[k].at("counters")[0];
        EXPECT_GT(elapsed, 0);
        EXPECT_EQ(counter.at("value"), 100 + 7 * k);
        EXPECT_EQ(counter.at("change"), 7);
        EXPECT_NEAR(counter.at("rate_per_second").get<double>(), 7 / elapsed, 1e-6);
    }
}

TEST_F(Statistics, WatchedWaitForTheirInterval) {
    const auto readings =
        json_lines({"card", "stats", "03:00.4", "--watch", "0.3", "--count", "3"});
    ASSERT_EQ(readings.size(), 3U);
    double elapsed = 0;
    for (std::size_t k = 1; k < readings.size(); ++k) {
        elapsed += readings[k].at("elapsed_seconds").get<double>();
    }
    EXPECT_GT(elapsed, 0.3);  // of 0.6: after a late reading the next one waits less
}

TEST_F(Statistics, CounterThatBeganAnewHasNoRate) {
    kxsim::Nic nic;
    nic.counters = {{"wrapping", 0xFFFFFFFFFFFFFFFF, 2}};
    host_.nic("eth2", nic);
    const auto readings =
        json_lines({"port", "stats", "03:00.4", "1", "--watch", "0.05", "--count", "2"});
    EXPECT_EQ(readings.at(1).at("counters")[0].at("value"), 1);
    EXPECT_TRUE(readings.at(1).at("counters")[0].at("change").is_null());
}

TEST_F(Statistics, WatchingEndsWhenNobodyReadsAnyMore) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const auto attached = host_.attach();
    const test::Result result = test::run(
        {"port", "stats", "03:00.4", "1", "--watch", "0.01"}, {.standard_output = ends[1]});
    close(ends[1]);
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(Statistics, WatchingFailsWhenTheOutputCannotBeWritten) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    const auto attached = host_.attach();
    const test::Result result =
        test::run({"port", "stats", "03:00.4", "1", "--watch", "0.01"}, {.standard_output = full});
    close(full);
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.err, "kxctl: standard output: No space left on device\n");
}

TEST_F(Statistics, WatchingEndsWithTheFailureOfAReading) {
    host_.fail({.call = "open", .nth = 3, .times = 0, .error = EIO, .object = kFile});
    const test::Result result =
        run_on(host_, {"card", "stats", "03:00.4", "--watch", "0.01", "--count", "9"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.out, HasSubstr("InSegs"));
    EXPECT_THAT(result.err, HasSubstr(std::string("kxctl: ") + kFile + ": Input/output error\n"));
}

TEST_F(Statistics, TakesOnlySensibleIntervalsAndCounts) {
    const std::vector<std::vector<std::string>> rows = {
        {"--watch", "0"},
        {"--watch", "-1"},
        {"--watch", "x"},
        {"--watch", "nan"},
        {"--watch", "inf"},
        {"--watch", "86401"},
        {"--watch", "1s"},
        {"--watch", "0.001"},
        {"--count", "2"},
        {"--watch", "1", "--count", "0"},
        {"--watch", "1", "--count", "-1"},
        {"--watch", "1", "--count", "many"}};
    for (const auto& options : rows) {
        for (std::vector<std::string> words :
             {std::vector<std::string>{"port", "stats", "03:00.4", "1"},
              std::vector<std::string>{"card", "stats", "03:00.4"}}) {
            words.insert(words.end(), options.begin(), options.end());
            const test::Result result = run_on(host_, words);
            EXPECT_EQ(result.exit, 2) << options[0] << " " << options[1];
            EXPECT_THAT(result.err, HasSubstr("expected")) << options[1];
        }
    }
}

}  // namespace
