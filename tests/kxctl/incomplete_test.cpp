// A call that fails once while a command reads the host: what could not be read is null, the answer
// has the reason, and the command ends with 4.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <kxsim/scenario.hpp>
#include <set>

#include "kxctl/on_host.hpp"

namespace {

using Json = nlohmann::json;
using Pointer = Json::json_pointer;
using testing::HasSubstr;

struct Row {
    std::vector<std::string> words;
    kxsim::Fault fault;
    const char* value;   // what is null then
    const char* reason;  // as in "incomplete"
};

const Row kRows[] = {
    {{"card", "list"},
     {.call = "open", .error = EIO, .object = "/sys/bus/pci/devices/0000:03:00.4/irq"},
     "/cards/0/irq",
     "/sys/bus/pci/devices/0000:03:00.4/irq: Input/output error"},
    {{"card", "list"},
     {.call = "ioctl", .error = EIO, .object = "eth2"},
     "/cards/0/port_count",
     "eth2: driver: Input/output error"},
    {{"card", "list"},
     {.call = "ioctl", .error = EIO, .object = "eth2"},
     "/cards/0/ports",
     "eth2: driver: Input/output error"},
    {{"adapter", "list"},
     {.call = "ioctl", .error = EIO, .object = "eth2"},
     "/adapters/0/ports",
     "eth2: driver: Input/output error"},
    {{"vpd", "show", "03:00.4"},
     {.call = "ioctl", .error = EIO, .object = "eth2"},
     "/ports",
     "eth2: driver: Input/output error"},
    {{"card", "list"},
     {.call = "socket", .error = EMFILE},
     "/cards/0/port_count",
     "socket for requests to interfaces: Too many open files"},
    {{"card", "list"},
     {.call = "readdir", .nth = 5, .error = EIO, .object = "/sys/class/net"},
     "/cards/0/port_count",
     "/sys/class/net: Input/output error"},
    {{"port", "list", "03:00.4"},
     {.call = "open", .error = EACCES, .object = "/sys/class/net/eth2/mtu"},
     "/ports/0/mtu",
     "/sys/class/net/eth2/mtu: Permission denied"},
    {{"port", "list", "03:00.4"},
     {.call = "read", .error = EIO, .object = "/sys/class/net/eth2/address"},
     "/ports/0/mac",
     "/sys/class/net/eth2/address: Input/output error"},
    {{"offload", "show", "03:00.4"},
     {.call = "open", .error = EIO, .object = "/proc/sys/toe/toe1_tom/max_host_sndbuf"},
     "/parameters/1/value",
     "/proc/sys/toe/toe1_tom/max_host_sndbuf: Input/output error"},
    {{"iwarp", "show", "iw_zfab4"},
     {.call = "fopen", .error = EIO, .object = "/sys/module/iw_zfab4/parameters/snd_win"},
     "/parameters/snd_win",
     "/sys/module/iw_zfab4/parameters/snd_win: Input/output error"},
    {{"adapter", "list"},
     {.call = "write",
      .nth = 5,
      .error = EIO,
      .object = "/sys/bus/pci/devices/0000:03:00.4/config"},
     "/adapters/0/serial_number",
     "/sys/bus/pci/devices/0000:03:00.4/config: Input/output error"},
    {{"adapter", "show", "04:00.4"},
     {.call = "write",
      .nth = 9,
      .error = EIO,
      .object = "/sys/bus/pci/devices/0000:04:00.4/config"},
     "/product",
     "/sys/bus/pci/devices/0000:04:00.4/config: Input/output error"},
    {{"flash", "info", "03:00.4"},
     {.call = "write",
      .nth = 6,
      .error = EIO,
      .object = "/sys/bus/pci/devices/0000:03:00.4/config"},
     "/serial_number",
     "/sys/bus/pci/devices/0000:03:00.4/config: Input/output error"},
    {{"module", "list"},
     {.call = "open", .error = EIO, .object = "/proc/modules"},
     "/modules/1/loaded",
     "/proc/modules: Input/output error"},
};

TEST(Incomplete, HasNullForWhatOneCallCouldNotRead) {
    for (const Row& row : kRows) {
        kxsim::Host host;
        kxsim::load_scenario(host, kxsim::find_scenario("lab"));
        EXPECT_FALSE(test::json_on(host, row.words).at(Pointer(row.value)).is_null()) << row.value;
        host.fail(row.fault);
        const Json answer = test::json_on(host, row.words, 4);
        EXPECT_EQ(answer.at(Pointer(row.value)), nullptr) << answer;
        EXPECT_EQ(answer.value("incomplete", Json()), Json::array({row.reason}));
    }
}

TEST(Incomplete, IsToldToPeopleBesideTheTable) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("lab"));
    host.fail({.call = "ioctl", .error = EIO, .object = "eth2"});
    const test::Result result = test::run_on(host, {"card", "list"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.out, HasSubstr("03:00.4   Q5"));
    EXPECT_EQ(result.err, "kxctl: eth2: driver: Input/output error\n");
}

TEST(Incomplete, MakesWhatIsNotFoundAFailure) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("lab"));
    EXPECT_EQ(test::run_on(host, {"port", "list", "09:00.4"}).exit, 3);
    host.fail({.call = "opendir", .times = 0, .error = EIO, .object = "/sys/bus/pci/devices"});
    const test::Result result = test::run_on(host, {"port", "list", "03:00.4"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr("\nkxctl: /sys/bus/pci/devices: Input/output error\n"));
}

TEST(Incomplete, ParametersOfOtherCardsAreNotMissing) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("lab"));
    const Json whole = test::json_on(host, {"offload", "show", "04:00.4"});
    host.fail({.call = "open", .times = 0, .error = EIO, .object = "/proc/sys/toe/toe1_tom/mss"});
    EXPECT_EQ(test::json_on(host, {"offload", "show", "04:00.4"}), whole);
    EXPECT_THAT(
        test::json_on(host, {"offload", "show", "03:00.4"}, 4).at("incomplete"),
        testing::SizeIs(1));
}

TEST(Incomplete, ProductDataWithAGapAreNotShown) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("lab"));
    const std::string config = "/sys/bus/pci/devices/0000:03:00.4/config";
    host.fail({.call = "write", .nth = 40, .error = EIO, .object = config});
    const test::Result result = test::run_on(host, {"vpd", "show", "03:00.4"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(
        result.err, "kxctl: 03:00.4: The vital product data could not be read: " + config +
                        ": Input/output error\n");
}

TEST(AShortRead, DoesNotCutAValue) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("lab"));
    const Json whole = test::json_on(host, {"port", "list", "03:00.4"});
    host.fail(
        {.call = "read", .times = 0, .error = 0, .object = "/sys/class/net/eth2/mtu", .most = 1});
    EXPECT_EQ(test::json_on(host, {"port", "list", "03:00.4"}), whole);
}

std::set<std::string> dynamic_symbols(const std::string& file, const char* kind) {
    const std::string command = std::string("nm -D ") + kind + " '" + file + "'";
    std::set<std::string> names;
    FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 1024> line;
    while (pipe != nullptr && std::fgets(line.data(), line.size(), pipe) != nullptr) {
        const std::string text(line.data());
        const std::string name = text.substr(text.find_last_of(' ') + 1);
        names.insert(name.substr(0, name.find_first_of("@\n")));
    }
    EXPECT_EQ(pipe == nullptr ? -1 : pclose(pipe), 0) << command;
    return names;
}

// The files of these libraries in this process.
std::vector<std::string> loaded(const std::vector<std::string>& names) {
    std::vector<std::string> files;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const std::size_t slash = line.find('/');
        const std::string file = slash == line.npos ? "" : line.substr(slash);
        const bool wanted = std::ranges::any_of(
            names, [&](const std::string& name) { return file.find("/" + name) != file.npos; });
        if (wanted && std::ranges::find(files, file) == files.end()) {
            files.push_back(file);
        }
    }
    EXPECT_EQ(files.size(), names.size());
    return files;
}

// A library below may come to use another form of these calls.
TEST(TheWatch, StandsInFrontOfEveryCallThatTheLibraryReadsWith) {
    const std::set<std::string> watched = dynamic_symbols(KXCTL_PROGRAM, "--defined-only");
    for (const std::string& path : loaded({"libkxlinhw.so", "libpci.so"})) {
        const std::set<std::string> used = dynamic_symbols(path, "--undefined-only");
        EXPECT_TRUE(used.contains("open")) << path;
        for (const char* const call :
             {"open",  "open64",  "openat",     "openat64",    "__open_2",   "__open64_2",
              "fopen", "fopen64", "opendir",    "readdir",     "readdir64",  "scandir",
              "glob",  "stat",    "stat64",     "lstat",       "lstat64",    "fstatat",
              "statx", "access",  "faccessat",  "readlink",    "readlinkat", "read",
              "pread", "pread64", "__read_chk", "__pread_chk", "mmap",       "mmap64",
              "ioctl", "socket",  "getifaddrs", "write",       "pwrite",     "pwrite64",
              "close", "closedir"}) {
            EXPECT_TRUE(!used.contains(call) || watched.contains(call)) << path << ": " << call;
        }
    }
}

}  // namespace
