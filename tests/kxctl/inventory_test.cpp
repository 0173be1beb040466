// card list, port list and module list on simulated hosts.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/export.h>
#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <kxsim/host.hpp>
#include <nlohmann/json.hpp>

#include "kxctl/process.hpp"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;

// Runs kxctl on the host.
test::Result run_on(kxsim::Host& host, std::vector<std::string> words) {
    const auto attached = host.attach();
    return test::run(std::move(words));
}

Json json_on(kxsim::Host& host, std::vector<std::string> words) {
    words.emplace_back("--json");
    const test::Result result = run_on(host, std::move(words));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return Json::parse(result.out);
}

// A failure, in both languages.
void expect_failure(
    kxsim::Host& host, std::vector<std::string> words, int exit, std::uint32_t status,
    const std::string& text) {
    const test::Result people = run_on(host, words);
    EXPECT_EQ(people.exit, exit);
    EXPECT_EQ(people.out, "");
    EXPECT_THAT(people.err, StartsWith("kxctl: " + text));
    EXPECT_EQ(std::count(people.err.begin(), people.err.end(), '\n'), 1);

    words.emplace_back("-j");
    const test::Result machines = run_on(host, words);
    EXPECT_EQ(machines.exit, exit);
    EXPECT_EQ(machines.err, people.err);
    EXPECT_EQ(
        Json::parse(machines.out),
        Json(
            {{"error",
              {{"code", exit}, {"status", status}, {"text", text}, {"detail", Json::array()}}}}));
}

void load_drivers(kxsim::Host& host) {
    host.module({.name = "zfab3", .version = "2.0.0.1", .description = "Q3 driver"});
    host.module(
        {.name = "zfab4",
         .version = "3.19.0.1",
         .description = "Q4 and Q5 driver",
         .loaded = true});
}

class ThreeAdapters : public testing::Test {
protected:
    void SetUp() override {
        load_drivers(host);
        host.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .device_id = 0x5001,
             .ports =
                 {{.name = "eth2",
                   .mac = "00:11:22:33:44:55",
                   .ipv4 = {"192.0.2.1/24"},
                   .ipv6 = {"2001:db8::1/64"},
                   .mtu = 9000,
                   .firmware = "1.27.5.0"},
                  {.name = "eth10", .mac = "00:11:22:33:44:56", .firmware = "1.27.5.0"}},
             .irq = 7});
        host.adapter({.chip = "Q4", .location = "04:00.4", .device_id = 0x4003, .irq = 9});
        host.adapter(
            {.chip = "Q3",
             .location = "05:00.0",
             .device_id = 0x31,
             .ports = {{.name = "eth5", .firmware = "7.12.0"}}});
        host.toe_device({.interfaces = {"eth5"}, .of_zfab3 = true});
    }

public:
    kxsim::Host host;
};

TEST_F(ThreeAdapters, AreListedForPeople) {
    const test::Result result = run_on(
        host, {"card", "list", "--columns",
               "location,chip_type,model,device_id,port_count,firmware,offload_device"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
    const Json card = json_on(host, {"card", "list"}).at("cards").at(2);
    const auto name = card.at("model").get<std::string>();
    const std::string gap(name.size() - 5, ' ');  // behind the heading "MODEL"
    const std::string empty(name.size() - 1, ' ');
    EXPECT_EQ(
        result.out, "LOCATION  CHIP  MODEL" + gap + "  DEVICE  PORTS  FIRMWARE  OFFLOAD\n" +
                        "03:00.4   Q5    -" + empty + "  5001        2  1.27.5.0  yes\n" +
                        "04:00.4   Q4    -" + empty + "  4003        0  -         yes\n" +
                        "05:00.0   Q3    " + name + "  0031        1  7.12.0    toe0\n");
}

TEST_F(ThreeAdapters, AreListedForMachinesFieldByField) {
    const Json reply = json_on(host, {"card", "list"});
    ASSERT_EQ(reply.size(), 1U);
    const Json& cards = reply.at("cards");
    ASSERT_EQ(cards.size(), 3U);
    Json card = cards[0];
    card.erase("ports");
    EXPECT_EQ(
        card, Json(
                  {{"location", "03:00.4"},
                   {"chip_type", "Q5"},
                   {"model", nullptr},
                   {"vendor_id", KXLINHW_PCI_VENDOR_ID},
                   {"device_id", 0x5001},
                   {"pci_class", nullptr},
                   {"irq", 7},
                   {"port_count", 2},
                   {"firmware", "1.27.5.0"},
                   {"offload_device", "OffloadCard"}}));
    EXPECT_EQ(cards[1].at("location"), "04:00.4");
    EXPECT_EQ(cards[1].at("chip_type"), "Q4");
    EXPECT_EQ(cards[1].at("irq"), 9);
    EXPECT_EQ(cards[1].at("port_count"), 0);
    EXPECT_TRUE(cards[1].at("firmware").is_null());
    EXPECT_EQ(cards[2].at("chip_type"), "Q3");
    EXPECT_EQ(cards[2].at("pci_class"), 0x0200);
    EXPECT_EQ(cards[2].at("offload_device"), "toe0");
    EXPECT_TRUE(cards[2].at("model").is_string());
}

TEST_F(ThreeAdapters, KeepTheOrderOfKeysInTheirText) {
    const std::string text = run_on(host, {"card", "list", "-j"}).out;
    EXPECT_LT(text.find("\"location\""), text.find("\"chip_type\""));
    EXPECT_LT(text.find("\"chip_type\""), text.find("\"offload_device\""));
}

TEST_F(ThreeAdapters, WithoutAnOffloadDeviceAQ3SaysNo) {
    kxsim::Host plain;
    load_drivers(plain);
    plain.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth5"}}});
    EXPECT_EQ(run_on(plain, {"card", "list", "--columns=offload_device"}).out, "OFFLOAD\nno\n");
    EXPECT_EQ(json_on(plain, {"card", "list"}).at("cards").at(0).at("offload_device"), "nic_dev");
}

TEST_F(ThreeAdapters, HaveTheirPortsListedForPeople) {
    const test::Result result = run_on(host, {"port", "list", "03:00.4"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(
        result.out,
        StartsWith("PORT  INTERFACE  LINK  SPEED  DUPLEX   MTU  MAC                IPV4       "
                   "LOCATION\n"));
    EXPECT_THAT(result.out, HasSubstr("\n   1  eth2  "));
    EXPECT_THAT(result.out, HasSubstr("  9000  00:11:22:33:44:55  192.0.2.1  03:00.4\n"));
    EXPECT_THAT(result.out, HasSubstr("\n   2  eth10  "));
    EXPECT_THAT(result.out, HasSubstr("  1500  00:11:22:33:44:56  -          03:00.4\n"));
}

TEST_F(ThreeAdapters, HaveTheirPortsListedForMachines) {
    const Json reply = json_on(host, {"port", "list", "03:00.4"});
    EXPECT_EQ(reply.size(), 2U);
    EXPECT_EQ(reply.at("location"), "03:00.4");
    ASSERT_EQ(reply.at("ports").size(), 2U);
    const Json& port = reply.at("ports").at(0);
    EXPECT_EQ(port.at("instance"), 1);
    EXPECT_EQ(port.at("interface"), "eth2");
    EXPECT_EQ(port.at("mtu"), 9000);
    EXPECT_EQ(port.at("mac"), "00:11:22:33:44:55");
    EXPECT_EQ(port.at("ipv4_address"), "192.0.2.1");
    EXPECT_EQ(port.at("ipv4_netmask"), "255.255.255.0");
    EXPECT_EQ(port.at("ipv6_address"), "2001:db8::1");
    EXPECT_TRUE(port.at("link_detected").is_boolean());
    EXPECT_TRUE(port.at("autoneg").is_boolean());
    EXPECT_TRUE(port.at("duplex").is_string());
    EXPECT_TRUE(port.at("speed").is_number_unsigned());
    const Json& second = reply.at("ports").at(1);
    EXPECT_EQ(second.at("instance"), 2);
    EXPECT_EQ(second.at("interface"), "eth10");
    for (const char* key : {"ipv4_address", "ipv4_netmask", "ipv6_address"}) {
        EXPECT_TRUE(second.at(key).is_null()) << key;
    }
}

TEST_F(ThreeAdapters, NameTheirInterfacesAndMacs) {
    const Json ports = {
        {{"instance", 1}, {"interface", "eth2"}, {"mac", "00:11:22:33:44:55"}},
        {{"instance", 2}, {"interface", "eth10"}, {"mac", "00:11:22:33:44:56"}}};
    const Json cards = json_on(host, {"card", "list"}).at("cards");
    EXPECT_EQ(cards.at(0).at("ports"), ports);
    EXPECT_EQ(cards.at(1).at("ports"), Json::array()) << "a card without a port";
    EXPECT_THAT(
        run_on(host, {"card", "list"}).out,
        HasSubstr("  eth2, eth10  00:11:22:33:44:55, 00:11:22:33:44:56\n"));
}

TEST_F(ThreeAdapters, FailToListWhatIsNotThere) {
    expect_failure(
        host, {"port", "list", "7f:1e.2"}, 3, 65,
        "No device with the specified pci bus location found");
    expect_failure(
        host, {"port", "list", "0000:7f:1e.2"}, 3, 65,
        "No device with the specified pci bus location found");
    expect_failure(host, {"port", "list", "04:00.4"}, 3, 72, "No port configured for the device");
}

TEST_F(ThreeAdapters, ShowNoColourButWhenItIsAskedFor) {
    EXPECT_EQ(run_on(host, {"card", "list"}).out.find('\033'), std::string::npos);
    EXPECT_THAT(
        run_on(host, {"card", "list", "--color", "always"}).out,
        StartsWith("\033[1mLOCATION\033[0m  \033[1mCHIP\033[0m"));
    EXPECT_EQ(
        run_on(host, {"card", "list", "--color", "always", "-j"}).out.find('\033'),
        std::string::npos);
}

// What kxctl prints on a terminal of that type.
std::string on_terminal(kxsim::Host& host, const std::vector<std::string>& environment) {
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    const auto attached = host.attach();
    test::Setup setup;
    setup.environment = environment;
    setup.standard_output = slave;
    const test::Result result = test::run({"card", "list"}, setup);
    EXPECT_EQ(result.exit, 0) << result.err;
    fcntl(master, F_SETFL, O_NONBLOCK);  // it has all that will come
    std::array<char, 4096> text;
    const ssize_t length = read(master, text.data(), text.size());
    close(slave);
    close(master);
    return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

TEST_F(ThreeAdapters, ShowColourOnATerminalUnlessUnwanted) {
    EXPECT_THAT(on_terminal(host, {"TERM=xterm"}), StartsWith("\033[1mLOCATION\033[0m"));
    EXPECT_THAT(on_terminal(host, {"TERM=xterm", "NO_COLOR=1"}), StartsWith("LOCATION"));
    EXPECT_THAT(on_terminal(host, {"TERM=dumb"}), StartsWith("LOCATION"));
}

TEST(HostWithoutDrivers, SaysThatNoneIsLoaded) {
    kxsim::Host host;
    host.file("/proc/modules", "ext4 1 1 - Live 0x0\n");
    host.adapter({.chip = "Q5", .location = "03:00.4", .driver = "none"});
    expect_failure(host, {"card", "list"}, 3, 62, "Kestrix driver not loaded/installed");
    expect_failure(host, {"port", "list", "03:00.4"}, 3, 62, "Kestrix driver not loaded/installed");
    expect_failure(host, {"module", "list"}, 3, 62, "Kestrix driver not loaded/installed");
}

TEST(HostWithoutDrivers, ShowsTheLibrarysOwnLineOnlyWhenAskedAndNeverOnStandardOutput) {
    kxsim::Host host;
    host.file("/proc/modules", "ext4 1 1 - Live 0x0\n");
    const std::string line = "InitAndFillInfo_Kxcard: No zfab3 or zfab4 Driver loaded\n";
    EXPECT_EQ(run_on(host, {"card", "list"}).err.find(line), std::string::npos);
    const test::Result verbose = run_on(host, {"card", "list", "-v"});
    EXPECT_EQ(verbose.out, "");
    EXPECT_THAT(verbose.err, StartsWith(line + "kxctl: "));
    EXPECT_TRUE(Json::accept(run_on(host, {"card", "list", "-vj"}).out));
}

TEST(HostWithoutAdapters, HasAnEmptyList) {
    kxsim::Host host;
    load_drivers(host);
    EXPECT_EQ(json_on(host, {"card", "list"}), Json({{"cards", Json::array()}}));
}

TEST(HostOfManyPorts, HasThemAllListed) {
    kxsim::Host host;
    load_drivers(host);
    std::vector<kxsim::Interface> ports;
    for (int k = 0; k < 300; ++k) {
        ports.push_back({.name = "eth" + std::to_string(k)});
    }
    host.adapter({.chip = "Q5", .location = "03:00.4", .ports = ports});
    const Json listed = json_on(host, {"port", "list", "03:00.4"}).at("ports");
    EXPECT_EQ(listed.size(), 300U);
    EXPECT_EQ(json_on(host, {"card", "list"}).at("cards").at(0).at("port_count"), 300);
}

TEST(HostOfManyCards, HasThemAllListed) {
    kxsim::Host host;
    load_drivers(host);
    for (int bus = 0; bus < 10; ++bus) {
        for (int device = 0; device < 30; ++device) {
            char location[8];
            std::snprintf(location, sizeof location, "%02x:%02x.4", bus + 0x10, device);
            host.pci_device(
                {.location = location, .vendor_id = KESTRIX_PCI_VENDOR_ID, .device_id = 0x4410});
        }
    }
    EXPECT_EQ(json_on(host, {"card", "list"}).at("cards").size(), 300U);
}

TEST(HostWithModules, ListsThoseThatHaveAFile) {
    kxsim::Host host;
    load_drivers(host);
    host.module({.name = "toecore", .loaded = true});
    const test::Result result = run_on(host, {"module", "list"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(
        result.out,
        "MODULE   LOADED  VERSION   DESCRIPTION\n"
        "toecore  yes     -         -\n"
        "zfab3    no      2.0.0.1   Q3 driver\n"
        "zfab4    yes     3.19.0.1  Q4 and Q5 driver\n");
    const auto module = [](const char* name, bool loaded, const Json& version, const Json& text) {
        return Json{{"module", name},      {"loaded", loaded},      {"version", version},
                    {"description", text}, {"compressed", nullptr}, {"listed_by_library", true}};
    };
    EXPECT_EQ(
        json_on(host, {"module", "list"}).at("modules"),
        Json(
            {module("toecore", true, nullptr, nullptr),
             module("zfab3", false, "2.0.0.1", "Q3 driver"),
             module("zfab4", true, "3.19.0.1", "Q4 and Q5 driver")}));
}

struct Compression {
    const char* command;
    const char* ending;
    bool listed_by_library;
    const char* note;
};

class HostWithCompressedModule : public testing::TestWithParam<Compression> {
protected:
    void SetUp() override {
        test::Setup setup;
        setup.program = "sh";
        const std::string command = GetParam().command;
        if (test::run({"-c", "command -v " + command}, setup).exit != 0) {
            GTEST_SKIP() << command << " is not installed";
        }
        if (test::run({"-c", "ldconfig -p | grep -q libkmod.so.2"}, setup).exit != 0) {
            GTEST_SKIP() << "libkmod is not installed (Debian package libkmod2)";
        }
        host_.module(
            {.name = "iw_zfab4",
             .version = "3.19.0.1",
             .description = "Q4 and Q5 RDMA driver",
             .loaded = true});
        const auto attached = host_.attach();
        const std::string file = "/lib/modules/$(uname -r)/updates/iw_zfab4.ko";
        const test::Result result = test::run(
            {"-c", command + " -c " + file + " > " + file + GetParam().ending + " && rm " + file},
            setup);
        ASSERT_EQ(result.exit, 0) << result.err;
    }

    kxsim::Host host_;
};

TEST_P(HostWithCompressedModule, IsReadAndMarked) {
    const std::string ending = std::string(".ko") + GetParam().ending;
    const Json answer = json_on(host_, {"module", "list"});
    ASSERT_EQ(answer.at("modules").size(), 1U);
    const Json expected = {
        {"module", "iw_zfab4"},  {"loaded", true},
        {"version", "3.19.0.1"}, {"description", "Q4 and Q5 RDMA driver"},
        {"compressed", ending},  {"listed_by_library", GetParam().listed_by_library}};
    EXPECT_EQ(answer.at("modules").at(0), expected);
    EXPECT_THAT(
        run_on(host_, {"module", "list"}).out,
        HasSubstr("3.19.0.1  Q4 and Q5 RDMA driver  " + ending + GetParam().note + "\n"));
}

TEST_P(HostWithCompressedModule, StandsAmongTheOthersInTheOrderOfTheirNames) {
    host_.module({.name = "kxstor", .version = "1"});
    host_.module({.name = "zfab4", .version = "2"});
    const Json modules = json_on(host_, {"module", "list"}).at("modules");
    ASSERT_EQ(modules.size(), 3U);
    EXPECT_EQ(modules.at(0).at("module"), "iw_zfab4");
    EXPECT_EQ(modules.at(1).at("module"), "kxstor");
    EXPECT_EQ(modules.at(2).at("module"), "zfab4");
}

INSTANTIATE_TEST_SUITE_P(
    EveryCompression, HostWithCompressedModule,
    testing::Values(
        Compression{"xz", ".xz", false, ": the library does not list it"},
        Compression{"zstd", ".zst", false, ": the library does not list it"},
        Compression{"gzip", ".gz", true, ": the library cannot read its texts"}),
    [](const auto& row) { return std::string(row.param.command); });

TEST(HostWithModules, WhoseCompressedFileIsDamagedListsItWithoutTexts) {
    kxsim::Host host;
    host.module({.name = "zfab4", .file = "zfab4.ko.xz"});
    const Json entry = json_on(host, {"module", "list"}).at("modules").at(0);
    EXPECT_EQ(entry.at("module"), "zfab4");
    EXPECT_TRUE(entry.at("version").is_null());
}

TEST(HostWithModules, WhoseListCannotBeReadShowsAQuestionMark) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1"});
    host.remove("/proc/modules");
    EXPECT_THAT(run_on(host, {"module", "list"}).out, HasSubstr("zfab4   ?       1"));
    EXPECT_EQ(json_on(host, {"module", "list"}).at("modules").at(0).at("loaded"), nullptr);
}

TEST(HostWithModules, WhoseTextsAreHostileKeepsThemOffTheTerminal) {
    kxsim::Host host;
    host.module(
        {.name = "zfab4", .version = "1\033[2J", .description = "a\xFF\nb", .loaded = true});
    const test::Result people = run_on(host, {"module", "list"});
    EXPECT_THAT(people.out, HasSubstr("zfab4   yes     1\uFFFD[2J    a\uFFFD\uFFFDb\n"));
    const Json entry = json_on(host, {"module", "list"}).at("modules").at(0);
    EXPECT_EQ(entry.at("version"), "1\033[2J");
    EXPECT_EQ(entry.at("description"), "a\uFFFD\nb");
}

TEST(HostWithModules, WhoseFirmwareTextFillsItsFieldIsReadNoFurther) {
    kxsim::Host host;
    load_drivers(host);
    host.adapter(
        {.chip = "Q5",
         .location = "03:00.4",
         .ports = {{.name = "eth2", .firmware = std::string(32, 'f')}}});
    EXPECT_EQ(
        json_on(host, {"card", "list"}).at("cards").at(0).at("firmware"), std::string(32, 'f'));
}

}  // namespace
