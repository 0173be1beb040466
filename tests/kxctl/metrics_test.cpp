// kxctl metrics: the text for monitoring, and the file with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "kxctl/on_host.hpp"
#include "output/metric.hpp"
#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

TEST(LabelText, CannotEndItsLabelOrLine) {
    EXPECT_EQ(kx::ctl::label_text("a\\b\"c"), "a\\\\b\\\"c");
    EXPECT_THAT(kx::ctl::label_text("x\"} 1\nevil 2"), Not(HasSubstr("\n")));
    EXPECT_EQ(kx::ctl::label_text("\xff"), "\uFFFD");
}

TEST(Exposition, LeavesMetricsWithoutASampleOut) {
    const std::vector<kx::ctl::Metric> metrics = {
        {"a_total", "counter", "A.", {{{{"l", "v"}}, 0xFFFFFFFFFFFFFFFF}, {{}, std::uint64_t{2}}}},
        {"b", "gauge", "B."}};
    EXPECT_EQ(
        kx::ctl::exposition_text(metrics),
        "# HELP a_total A.\n# TYPE a_total counter\n"
        "a_total{l=\"v\"} 18446744073709551615\na_total 2\n");
}

class Metrics : public testing::Test {
protected:
    static std::string text_on(const char* scenario, std::vector<std::string> words = {}) {
        words.insert(words.begin(), {std::string("--sim=") + scenario, "metrics"});
        const test::Result result = test::run(words);
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    // The durations are the only samples that differ between two runs.
    static std::string without_durations(const std::string& text) {
        std::istringstream stream(text);
        std::string kept;
        for (std::string line; std::getline(stream, line);) {
            kept += line.find("_duration_seconds") == line.npos ? line + "\n" : "";
        }
        return kept;
    }

    std::string content() const { return test::file_text(file_); }

    const test::ScratchDirectory directory_;
    const fs::path file_ = directory_ / "kxlinhw.prom";
};

TEST_F(Metrics, TellStateAndUsefulCounters) {
    const std::string text = text_on("lab");
    const std::string port = "{location=\"03:00.4\",port=\"1\",interface=\"eth2\"} ";
    for (const char* line : {"kxlinhw_port_link_up", "kxlinhw_port_receive_frames_total"}) {
        EXPECT_THAT(text, HasSubstr("\n" + std::string(line) + port)) << line;
    }
    EXPECT_THAT(text, HasSubstr("\nkxlinhw_cards 3\n"));
    EXPECT_THAT(text, HasSubstr("\nkxlinhw_port_speed_bytes" + port + "1250000000\n"));
    EXPECT_THAT(text, HasSubstr("\nkxlinhw_port_mtu_bytes" + port + "9000\n"));
    EXPECT_THAT(text, HasSubstr("\nkxlinhw_port_receive_bytes_total" + port + "1500000\n"));
    EXPECT_THAT(text, HasSubstr("\nkxlinhw_port_receive_dropped_total" + port + "3\n"));
    EXPECT_THAT(text, HasSubstr("\nkxlinhw_module_loaded{module=\"bonding\"} 0\n"));
    EXPECT_THAT(
        text,
        HasSubstr("\nkxlinhw_port_link_up{location=\"04:00.4\",port=\"4\",interface=\"eth7\"} "
                  "0\n"));
    EXPECT_THAT(text, Not(HasSubstr("counter=")));
}

TEST_F(Metrics, TellEveryCounterOnRequest) {
    const std::string text = text_on("lab", {"--all"});
    EXPECT_THAT(
        text, HasSubstr("kxlinhw_port_statistic_total{location=\"03:00.4\",port=\"1\",interface="
                        "\"eth2\",counter=\"rx_multicast_frames\"} 20\n"));
    EXPECT_THAT(
        text, HasSubstr("kxlinhw_card_statistic{location=\"05:00.0\",group=\"1\",counter="
                        "\"CurrEstab\"} 63\n"));
}

TEST_F(Metrics, OfAHostWithoutCardsAreThereToo) {
    for (const char* scenario : {"empty", "no-driver", "guest-vfs-only"}) {
        EXPECT_THAT(text_on(scenario), HasSubstr("\nkxlinhw_cards 0\n")) << scenario;
    }
}

TEST_F(Metrics, AreWellFormedLinesWithEachSampleOnce) {
    const std::regex sample(
        R"re([a-z_]+(\{[a-z]+="([^"\\]|\\["\\])*"(,[a-z]+="([^"\\]|\\["\\])*")*\})? [0-9]+(\.[0-9]+)?(e-[0-9]+)?)re");
    for (const char* scenario : {"lab", "many-ports", "nic-only-q3", "damaged-vpd"}) {
        std::istringstream stream(text_on(scenario, {"--all"}));
        std::set<std::string> seen;
        for (std::string line; std::getline(stream, line);) {
            if (!line.starts_with("# ")) {
                EXPECT_TRUE(std::regex_match(line, sample)) << line;
            }
            EXPECT_TRUE(seen.insert(line.substr(0, line.rfind(' '))).second) << line;
        }
    }
}

TEST_F(Metrics, SatisfyTheCheckerOfPrometheus) {
    test::Setup setup;
    setup.program = "sh";
    if (test::run({"-c", "command -v promtool"}, setup).exit != 0) {
        GTEST_SKIP() << "no promtool (Debian package prometheus)";
    }
    for (const char* scenario : {"lab", "empty", "many-ports"}) {
        for (const char* option : {"", "--all"}) {
            std::ofstream(file_) << text_on(
                scenario,
                *option == '\0' ? std::vector<std::string>{} : std::vector<std::string>{option});
            const test::Result result =
                test::run({"-c", "promtool check metrics < \"$1\"", "sh", file_}, setup);
            EXPECT_EQ(result.exit, 0) << scenario << option << result.out << result.err;
            EXPECT_EQ(result.out + result.err, "");
        }
    }
}

// Prints each sample as the client sees it: its name, its labels by name, its value.
constexpr char kReader[] = R"(
import sys
from prometheus_client.parser import text_string_to_metric_families
for family in text_string_to_metric_families(sys.stdin.read()):
    assert family.documentation and family.type in ("counter", "gauge", "unknown"), family
    for sample in family.samples:
        labels = ",".join('%s="%s"' % label for label in sorted(sample.labels.items()))
        print("%s{%s} %d" % (sample.name, labels, sample.value))
)";

// The samples of a text as that program prints them.
std::multiset<std::string> samples_in(const std::string& text) {
    std::multiset<std::string> samples;
    std::istringstream stream(text);
    const std::regex label(R"re([a-z_]+="[^"]*")re");
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("#")) {
            continue;
        }
        const std::string name = line.substr(0, line.find_first_of("{ "));
        const std::set<std::string> labels(
            std::sregex_token_iterator(line.begin(), line.end(), label), {});
        std::string sample = name + "{";
        for (const std::string& one : labels) {
            sample += (sample.back() == '{' ? "" : ",") + one;
        }
        samples.insert(sample + "}" + line.substr(line.rfind(' ')));
    }
    return samples;
}

TEST_F(Metrics, AreReadByAClientAsTheyWereMeant) {
    test::Setup setup;
    setup.program = "/usr/bin/python3";
    if (!fs::exists(setup.program) ||
        test::run({"-c", "import prometheus_client.parser"}, setup).exit != 0) {
        GTEST_SKIP() << "no client of Prometheus (Debian package python3-prometheus-client)";
    }
    const std::string text = without_durations(text_on("lab", {"--all"}));
    std::ofstream(file_) << text;
    setup.program = "sh";
    const test::Result result =
        test::run({"-c", "exec /usr/bin/python3 -c \"$1\" < \"$2\"", "sh", kReader, file_}, setup);
    EXPECT_EQ(result.exit, 0) << result.err;
    std::istringstream stream(result.out);
    std::multiset<std::string> read;
    for (std::string line; std::getline(stream, line);) {
        read.insert(line);
    }
    EXPECT_GT(read.size(), 50U);
    EXPECT_EQ(read, samples_in(text));
}

TEST_F(Metrics, ReplaceTheirFileAsAWhole) {
    std::ofstream(file_) << "old\n";
    EXPECT_EQ(text_on("lab", {"--output", file_}), "");
    EXPECT_EQ(without_durations(content()), without_durations(text_on("lab")));
    struct stat status {};
    ASSERT_EQ(stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_.path()), {}), 1)
        << "nothing left behind";
}

TEST_F(Metrics, KeepTheirFileWhenTheNewOneCannotBeMade) {
    kxsim::Host host;
    fs::create_directory(file_);  // cannot be replaced by a file
    const test::Result taken = test::run_on(host, {"metrics", "--output", file_});
    EXPECT_EQ(taken.exit, 1);
    EXPECT_THAT(taken.err, HasSubstr(file_.string()));
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_.path()), {}), 1)
        << "nothing left behind";
    EXPECT_EQ(test::run_on(host, {"metrics", "--output", file_ / "no" / "x.prom"}).exit, 3);
}

TEST_F(Metrics, AreDataForMachines) {
    kxsim::Host host;
    const auto answer = test::json_on(host, {"metrics", "--output", file_});
    EXPECT_EQ(answer.at("file"), file_.string());
    EXPECT_EQ(answer.at("metrics").at(4).at("name"), "kxlinhw_cards");
    EXPECT_EQ(answer.at("metrics").at(4).at("samples").at(0).at("value"), 0);
    EXPECT_FALSE(answer.contains("incomplete"));
}

TEST_F(Metrics, CountTheAdaptersOnTheBusBesideTheCardsThatAreServed) {
    EXPECT_THAT(text_on("lab"), HasSubstr("\nkxlinhw_adapters 3\n"));
    const std::string text = text_on("no-driver");
    EXPECT_THAT(text, HasSubstr("\nkxlinhw_cards 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("\nkxlinhw_adapters 0\n")));
    EXPECT_THAT(text_on("empty"), HasSubstr("\nkxlinhw_adapters 0\n"));
}

TEST_F(Metrics, TellThatEachCollectorSucceededAndHowLongItTook) {
    const std::string text = text_on("lab", {"--all"});
    for (const std::string collector : {"adapters", "cards", "ports", "offload", "modules"}) {
        const std::string labels = "{collector=\"" + collector + "\"} ";
        EXPECT_THAT(text, HasSubstr("\nkxlinhw_collector_success" + labels + "1\n"));
        const std::string name = "\nkxlinhw_collector_duration_seconds" + labels;
        const std::size_t at = text.find(name);
        ASSERT_NE(at, text.npos) << collector;
        EXPECT_GT(std::stod(text.substr(at + name.size())), 0.0);
    }
}

class FailingCollectors : public Metrics {
protected:
    FailingCollectors() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
    }

    // Runs metrics into the file, which is whole whatever failed. The lines on standard error.
    std::string expect_incomplete(const char* failed, const char* succeeded) {
        std::ofstream(file_) << "old\n";
        const test::Result result = test::run_on(host_, {"metrics", "--output", file_});
        EXPECT_EQ(result.exit, 4);
        const std::string success = "kxlinhw_collector_success{collector=\"";
        EXPECT_THAT(content(), HasSubstr(success + failed + "\"} 0\n"));
        EXPECT_THAT(content(), HasSubstr(success + succeeded + "\"} 1\n"));
        EXPECT_THAT(content(), Not(HasSubstr("old")));
        const auto answer = test::json_on(host_, {"metrics"}, 4);
        EXPECT_THAT(std::string(answer.at("incomplete").at(0)), HasSubstr(failed));
        return result.err;
    }

    kxsim::Host host_;
};

TEST_F(FailingCollectors, TellThatTheListOfModulesCannotBeRead) {
    host_.file("/proc/modules", "zfab4 1 0 - Live 0x0\n", 0);
    EXPECT_THAT(
        expect_incomplete("modules", "adapters"),
        HasSubstr("kxctl: modules: /proc/modules: Permission denied\n"));
    EXPECT_THAT(content(), Not(HasSubstr("kxlinhw_module_loaded")));
    EXPECT_THAT(content(), HasSubstr("kxlinhw_collector_success{collector=\"ports\"} 0\n"))
        << "nothing is known of cards either";
}

TEST_F(FailingCollectors, TellThatTheBusCannotBeRead) {
    host_.fail({.call = "opendir", .times = 0, .error = EIO, .object = "/sys/bus/pci/devices"});
    EXPECT_THAT(
        expect_incomplete("adapters", "modules"),
        HasSubstr("kxctl: adapters: /sys/bus/pci/devices: Input/output error\n"));
    EXPECT_THAT(content(), Not(HasSubstr("kxlinhw_adapters ")));
}

}  // namespace
