// kxctl report: the page's structure, what hostile names become, and how a browser shows it.
#include "report/page.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <kxsim/scenario.hpp>
#include <regex>
#include <set>

#include "kxctl/on_host.hpp"
#include "report/html.hpp"
#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;
using kx::ctl::Json;
using testing::HasSubstr;
using testing::Not;

// Why a page is not well-formed; empty when it is. Every tag is closed in its order, every
// attribute is quoted, every "&" begins a reference.
std::string fault_in(std::string page) {
    const std::string declaration = "<!DOCTYPE html>\n";
    if (!page.starts_with(declaration)) {
        return "no declaration";
    }
    page.erase(0, declaration.size());
    static const std::regex tag(
        R"re(<(/?)([a-z][a-z0-9]*)((?: [a-zA-Z-]+="[^"<&]*(?:&[a-z#0-9]+;[^"<&]*)*")*)(/?)>)re");
    static const std::regex text(R"re([^<>&]*(?:&(?:[a-z]+|#[0-9]+);[^<>&]*)*)re");
    std::vector<std::string> open;
    auto at = page.cbegin();
    while (at != page.cend()) {
        const auto next = std::find(at, page.cend(), '<');
        if (!std::regex_match(at, next, text)) {
            return "text: " + std::string(at, std::min(next, at + 200));
        }
        std::smatch found;
        if (next == page.cend()) {
            break;
        }
        if (!std::regex_search(
                next, page.cend(), found, tag, std::regex_constants::match_continuous)) {
            return "tag: " + std::string(next, page.cend()).substr(0, 200);
        }
        if (found[1].length() != 0) {
            if (open.empty() || open.back() != found[2]) {
                return "closes " + found[2].str();
            }
            open.pop_back();
        } else if (found[4].length() == 0) {
            open.push_back(found[2]);
        }
        at = found[0].second;
    }
    return open.empty() ? "" : "open: " + open.back();
}

class Report : public testing::Test {
protected:
    std::string page_of(const std::string& scenario) const {
        const test::Result result = test::run({"--sim=" + scenario, "report", "--html", file_});
        EXPECT_EQ(result.exit, scenario == "damaged-vpd" ? 4 : 0) << result.err;
        return content();
    }

    std::string content() const { return test::file_text(file_); }

    const test::ScratchDirectory directory_;
    const std::string file_ = directory_ / "host.html";
};

TEST(FaultIn, FindsWhatIsNotWellFormed) {
    const std::string head = "<!DOCTYPE html>\n";
    EXPECT_EQ(fault_in(head + "<p class=\"a\">x &amp; y<br/></p>"), "");
    for (const char* bad :
         {"<p>", "</p>", "<p><b></p></b>", "<p class=a></p>", "<p>a & b</p>", "<p>1 > 0</p>",
          "<p title=\"<\"></p>"}) {
        EXPECT_NE(fault_in(head + bad), "") << bad;
    }
}

TEST_F(Report, IsWellFormedOnEveryHost) {
    for (const char* scenario :
         {"lab", "many-ports", "nic-only-q3", "no-driver", "damaged-vpd", "empty"}) {
        EXPECT_EQ(fault_in(page_of(scenario)), "") << scenario;
    }
}

TEST_F(Report, NeedsNothingFromOutside) {
    const std::string page = page_of("lab");
    for (const char* reference :
         {"http:", "https:", "src=", "href=\"h", "href=\"/", "url(", "@import", "<script", "<link",
          "<iframe", "//"}) {
        EXPECT_THAT(page, Not(HasSubstr(reference)));
    }
    EXPECT_THAT(page, HasSubstr("default-src 'none'"));
}

TEST_F(Report, IsMadeForPhonesPaperAndDarkness) {
    const std::string page = page_of("empty");
    EXPECT_THAT(page, HasSubstr("name=\"viewport\" content=\"width=device-width"));
    EXPECT_THAT(page, HasSubstr("prefers-color-scheme: dark"));
    EXPECT_THAT(page, HasSubstr("@media print"));
}

TEST_F(Report, ShowsTheWholeHost) {
    const std::string page = page_of("lab");
    for (const char* text :
         {"03:00.4", "04:00.4", "05:00.0", "PT05160001", "eth7", "192.0.2.12", "rx_bytes",
          "RetransSegs", "Vital product data", "110-1160-50", "iw_zfab4", "web1", "0000:04:01.0",
          "version 1.0.0.84"}) {
        EXPECT_THAT(page, HasSubstr(text));
    }
}

// The ids that links of the page name, and the ids that the page has.
std::vector<std::string> all_of(const std::string& page, const std::string& before) {
    std::vector<std::string> found;
    for (std::size_t at = page.find(before); at != page.npos; at = page.find(before, at + 1)) {
        const std::size_t begin = at + before.size();
        found.push_back(page.substr(begin, page.find('"', begin) - begin));
    }
    return found;
}

TEST_F(Report, BeginsWithTheProblemsAndLinksToTheirPlaces) {
    for (const char* scenario : {"lab", "many-ports", "no-driver", "damaged-vpd", "empty"}) {
        const std::string page = page_of(scenario);
        const std::vector<std::string> places = all_of(page, " id=\"");
        EXPECT_EQ(std::set<std::string>(places.begin(), places.end()).size(), places.size());
        for (const std::string& link : all_of(page, "href=\"#")) {
            EXPECT_THAT(places, testing::Contains(link)) << scenario;
        }
    }
    const std::string page = page_of("lab");
    const std::size_t problem = page.find("<a href=\"#ports-2\">eth7: the link is down</a>");
    ASSERT_NE(problem, page.npos);
    EXPECT_LT(problem, page.find("id=\"card-1\""));
    EXPECT_THAT(page_of("damaged-vpd"), HasSubstr("href=\"#vpd-"));
    EXPECT_THAT(page_of("empty"), HasSubstr("<h2>No problems found</h2>"));
}

// A card with these counters on one port, and images.
Json host_with(const Json& counters) {
    Json host = Json::parse(R"({"name": "n", "time": "t", "version": {},
        "cards": [{"location": "03:00.4", "card": {}, "adapter": {},
          "ports": [{"instance": 1, "interface": "eth2", "link_detected": 1}],
          "counters": {"counters": []},
          "flash": {"flash": {"size_bytes": 1000}, "regions": [
            {"name": "boot", "address": 0, "size_bytes": 10, "valid": false}]},
          "vpd": {"checksum": "good", "fields": []}}],
        "modules": {"modules": []}, "vms": {"failure": "No connection"}})");
    host["cards"][0]["ports"][0]["counters"] = Json{{"counters", counters}};
    return host;
}

TEST(Problems, AreErrorsMissingImagesAndFailures) {
    const std::string page = kx::ctl::page::report_page(host_with(
        {{{"name", "rx_crc_errors"}, {"value", 3}},
         {{"name", "tx_errors"}, {"value", 0}},
         {{"name", "rx_frames"}, {"value", 9}}}));
    EXPECT_EQ(fault_in(page), "");
    EXPECT_THAT(page, HasSubstr("<h2>3 problems</h2>"));
    EXPECT_THAT(page, HasSubstr("<a href=\"#counters-1-1\">eth2: rx_crc_errors is 3</a>"));
    EXPECT_THAT(
        page, HasSubstr("<a href=\"#flash-1\">03:00.4: nothing valid in region boot of the flash"));
    EXPECT_THAT(page, HasSubstr("<a href=\"#machines\">Virtual machines: No connection</a>"));
    EXPECT_THAT(page, Not(HasSubstr("tx_errors is")));
}

TEST(Bars, CompareCountersOfOneUnitOnly) {
    const std::string page = kx::ctl::page::report_page(host_with(
        {{{"name", "rx_bytes"}, {"value", 1000000}},
         {{"name", "rx_frames"}, {"value", 10}},
         {{"name", "link_changes"}, {"value", 7}}}));
    EXPECT_EQ(all_of(page, "<rect width=\""), (std::vector<std::string>{"100.0", "100.0"}));
}

TEST_F(Report, DrawsTheFlashToScale) {
    // 4 MiB: boot 384 KiB from 0, config 64 KiB from 448 KiB, firmware from 512 KiB to the end.
    const std::string page = page_of("lab");
    EXPECT_THAT(page, HasSubstr("<rect class=\"boot\" x=\"0.00\" width=\"93.75\""));
    EXPECT_THAT(page, HasSubstr("<rect class=\"config\" x=\"109.38\" width=\"15.62\""));
    EXPECT_THAT(page, HasSubstr("<rect class=\"firmware\" x=\"125.00\" width=\"875.00\""));
}

TEST_F(Report, TellsWhatCannotBeReadInItsPlace) {
    const test::Result result = test::run({"--sim=no-driver", "report", "--json", "--html", file_});
    EXPECT_EQ(result.exit, 0);
    const auto answer = nlohmann::json::parse(result.out);
    EXPECT_GT(answer.at("failures").size(), 0U);
    EXPECT_THAT(content(), HasSubstr("class=\"failure\""));
}

struct Gap {
    kxsim::Fault fault;
    const char* reason;
    const char* on_page;
};

TEST_F(Report, PassesOnWhatItsAnswersLack) {
    const Gap gaps[] = {
        {{.call = "ioctl", .error = EIO, .object = "eth2"},
         "eth2: driver: Input/output error",
         "<li>Not read: eth2: driver: Input/output error</li>"},
        {{.call = "open", .nth = 3, .error = EIO, .object = "/sys/class/net/eth2/mtu"},
         "/sys/class/net/eth2/mtu: Input/output error",
         "<li>Not read: /sys/class/net/eth2/mtu"},
        {{.call = "libvirt", .error = EIO, .object = "virConnectListDefinedDomains"},
         "vm list: Cannot list the virtual machines: Error getting domain details",
         ">Virtual machines: Cannot list the virtual machines"},
        {{.call = "libvirt", .error = EIO, .object = "virDomainGetUUID"},
         "The UUID of the virtual machine ",
         "<li>Not read: The UUID of"},
    };
    for (const Gap& gap : gaps) {
        kxsim::Host host;
        kxsim::load_scenario(host, kxsim::find_scenario("lab"));
        host.fail(gap.fault);
        const test::Result result = test::run_on(host, {"report", "--json", "--html", file_});
        EXPECT_EQ(result.exit, 4) << gap.reason;
        EXPECT_THAT(
            Json::parse(result.out).value("incomplete", Json()),
            testing::Contains(testing::ResultOf(
                [](const Json& each) { return each.get<std::string>(); },
                testing::StartsWith(gap.reason))));
        EXPECT_EQ(fault_in(content()), "");
        EXPECT_THAT(content(), HasSubstr(gap.on_page));
    }
}

// Exit code 4 for each report of such a host would hide the others.
TEST_F(Report, OfAHostWithoutLibvirtIsWhole) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("lab"));
    host.remove("/var/lib/libvirt/kxsim/node.xml");
    EXPECT_EQ(test::run_on(host, {"report", "--html", file_}).exit, 4);
    host.fail({.call = "stat", .times = 0, .error = ENOENT, .object = "/usr/bin/virsh"});
    const test::Result result = test::run_on(host, {"report", "--html", file_});
    EXPECT_EQ(result.exit, 0) << result.err;
}

constexpr char kHostile[] = "<script>alert('x')</script>\" onload=\"y & z\x01\xff";

TEST(HtmlText, CannotBecomeMarkup) {
    EXPECT_EQ(
        kx::ctl::page::html_text(kHostile),
        "&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&quot; onload=&quot;y &amp; z\uFFFD\uFFFD");
}

// A host all of whose texts are hostile, made of the lab's answers.
void poison(Json& value) {
    if (value.is_string()) {
        value = kHostile;
    } else if (value.is_structured()) {
        for (Json& part : value) {
            poison(part);
        }
    }
}

TEST(ReportPage, HostileTextsStayTexts) {
    Json host = Json::parse(R"({"name": "n", "time": "t", "version": {"kxctl": {"version": "1"}},
        "cards": [{"location": "l", "card": {"chip_type": "c", "model": "m", "firmware": "f"},
          "adapter": {"serial_number": "s", "mac": "m"},
          "ports": [{"instance": 1, "interface": "i", "link_detected": false, "speed": null,
            "duplex": null, "mtu": null, "mac": null, "ipv4_address": "a",
            "counters": {"counters": [{"name": "n", "value": 18446744073709551615}]}}],
          "counters": {"failure": "no"},
          "flash": {"flash": {"size_bytes": 1000}, "regions": [
            {"name": "r", "address": 0, "size_bytes": 10, "valid": true, "version": "v"}]},
          "vpd": {"checksum": "b", "fields": [{"keyword": "k", "meaning": "m", "text": "t"}]}}],
        "modules": {"modules": [{"module": "m", "loaded": true, "version": "v", "description": "d"}]},
        "vms": {"vms": [{"name": "n", "state": "s", "functions": {"vfs": ["f"]}}]}})");
    poison(host);
    const std::string page = kx::ctl::page::report_page(host);
    EXPECT_EQ(fault_in(page), "");
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, Not(HasSubstr("onload=\"")));
}

TEST_F(Report, NeedsAFile) {
    EXPECT_EQ(test::run({"report"}).exit, 2);
    EXPECT_EQ(test::run({"--sim", "report", "--html", directory_ / "no/x.html"}).exit, 3);
}

// Whether a browser shows a page of the directory on a screen as wide as a phone's: a picture in
// PAGE.png. All other functions of the browser are switched off.
test::Result show_in_browser(const fs::path& directory, const std::string& page, int seconds) {
    const std::string command =
        "cd \"$1\" && timeout -k 5 \"$3\" chromium --headless --no-sandbox --disable-gpu "
        "--disable-dev-shm-usage --disable-quic --no-first-run --disable-background-networking "
        "--disable-component-update --disable-sync --user-data-dir=\"$1/profile-$2\" "
        "--window-size=390,844 --screenshot=\"$2.png\" \"file://$1/$2\"";
    test::Setup setup;
    setup.program = "sh";
    return test::run({"-c", command, "sh", directory, page, std::to_string(seconds)}, setup);
}

TEST_F(Report, IsShownByABrowser) {
    test::Setup setup;
    setup.program = "sh";
    if (test::run({"-c", "command -v chromium"}, setup).exit != 0) {
        GTEST_SKIP() << "no chromium (Debian package chromium)";
    }
    page_of("lab");
    const test::Result result = show_in_browser(directory_.path(), "host.html", 120);
    directory_.write("blank.html", "<!DOCTYPE html><title>blank</title>");
    if (result.exit != 0 && show_in_browser(directory_.path(), "blank.html", 60).exit != 0) {
        GTEST_SKIP() << "chromium shows no page at all here: " << result.err;
    }
    EXPECT_EQ(result.exit, 0) << result.err;
    std::error_code error;
    EXPECT_GT(fs::file_size(directory_ / "host.html.png", error), 10000U) << result.err;
}

}  // namespace
