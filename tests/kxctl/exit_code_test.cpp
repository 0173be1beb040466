// The exit codes of commands, and their output: for a plain failure one line on standard error, or
// with --json one error; for a refused change also the settings.
#include "failure/exit_code.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <kxsim/scenario.hpp>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "cli/command_line.hpp"
#include "failure/failure.hpp"
#include "flash/lock.hpp"
#include "kxctl/every_command.hpp"
#include "settings/configuration_lock.hpp"
#include "support/shell.hpp"

namespace {

using namespace kx::ctl;
using test::lines_of;
using testing::AllOf;
using testing::Not;
using testing::StartsWith;
using JsonText = nlohmann::json;

// The state of the host.
enum class Trouble : std::uint8_t {
    kNone,
    kEmpty,           // it has no adapter
    kNoDriver,        // of its adapter is loaded
    kNicOnly,         // drivers without offload
    kNoProductData,   // no capability to read it
    kErased,          // product data
    kNoMemory,        // nobody may open /dev/mem
    kBusyController,  // the flash's
    kFlippedBit,      // in what is written to the flash
    kLocked,          // another kxctl works on the configuration files
    kFlashLocked,     // or on the flash of the adapter 03:00.4
};

// Whether a command fails as a whole, or reports a result for each of its tasks.
enum class Form : std::uint8_t { kFailure, kReport };

struct Row {
    int exit;
    std::string line;  // behind "kxctl"
    Trouble trouble = Trouble::kNone;
    Form form = Form::kFailure;
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.line << " " << static_cast<int>(row.trouble);
}

const Row kRows[] = {
    {3, "card list", Trouble::kNoDriver},
    {3, "port show 03:00.4 7"},
    {3, "port stats 03:00.4 7"},
    {1, "port set 03:00.4 1 tso=2", Trouble::kNone, Form::kReport},
    {2, "port set 03:00.4 1 mtu=wide"},
    {3, "port set 03:00.4 7 mtu=1500"},
    {4, "port set 03:00.4 1 tso=2 message_level=3", Trouble::kNone, Form::kReport},
    {5, "port set 03:00.4 1 mtu=1500 --no-wait", Trouble::kLocked},
    {14, "offload show 05:00.0", Trouble::kNicOnly},
    {2, "offload set 03:00.4 max_wr_credits=1"},
    {5, "offload set 03:00.4 mss=1460 --no-wait", Trouble::kLocked},
    {14, "offload set 05:00.0 mss=1460", Trouble::kNicOnly},
    {14, "iwarp show zfab4"},
    {2, "iwarp set iw_zfab4 peer2peer=maybe"},
    {14, "iwarp set iw_zfab3 z4iw_debug=1"},
    {3, "adapter show 03:00.4", Trouble::kEmpty},
    {13, "adapter list", Trouble::kNoMemory},
    {13, "adapter show 03:00.4", Trouble::kNoMemory},
    {2, "vpd show 03:00.4 --raw ."},
    {3, "vpd show 03:00.4 --raw no-such/vpd.bin"},
    {4, "vpd show 02:00.4", Trouble::kErased, Form::kReport},
    {14, "vpd show 07:00.4", Trouble::kNoProductData},
    {5, "flash info 03:00.4", Trouble::kBusyController},
    {5, "flash info 03:00.4", Trouble::kFlashLocked},
    {13, "flash info 03:00.4", Trouble::kNoMemory},
    {2, "flash dump 03:00.4 rom.bin"},
    {3, "flash dump 03:00.4 no-such/new.bin"},
    {5, "flash dump 03:00.4 new.bin", Trouble::kFlashLocked},
    {13, "flash dump 03:00.4 new.bin", Trouble::kNoMemory},
    {2, "flash write-boot 03:00.4 config.bin --yes"},
    {3, "flash write-boot 03:00.4 no-such.bin --yes"},
    {5, "flash write-boot 03:00.4 rom.bin --yes", Trouble::kFlashLocked},
    {6, "flash write-boot 04:00.4 rom.bin --yes --no-backup", Trouble::kFlippedBit},
    {13, "flash write-boot 03:00.4 rom.bin --yes", Trouble::kNoMemory},
    {2, "flash erase-boot 03:00.4"},
    {5, "flash erase-boot 03:00.4 --yes", Trouble::kFlashLocked},
    {13, "flash erase-boot 03:00.4 --yes", Trouble::kNoMemory},
    {3, "flash config-show 05:00.0", Trouble::kNicOnly},
    {5, "flash config-show 03:00.4", Trouble::kFlashLocked},
    {13, "flash config-show 03:00.4", Trouble::kNoMemory},
    {2, "flash config-default 03:00.4"},
    {5, "flash config-default 03:00.4 --yes", Trouble::kFlashLocked},
    {6, "flash config-default 05:00.0 --yes --no-backup", Trouble::kFlippedBit},
    {13, "flash config-default 03:00.4 --yes", Trouble::kNoMemory},
    {2, "flash config-erase 03:00.4"},
    {5, "flash config-erase 03:00.4 --yes", Trouble::kFlashLocked},
    {13, "flash config-erase 03:00.4 --yes", Trouble::kNoMemory},
    {2, "flash config-write 03:00.4 rom.bin --yes"},
    {3, "flash config-write 03:00.4 no-such.bin --yes"},
    {5, "flash config-write 03:00.4 config.bin --yes", Trouble::kFlashLocked},
    {6, "flash config-write 04:00.4 config.bin --yes --no-backup", Trouble::kFlippedBit},
    {13, "flash config-write 03:00.4 config.bin --yes", Trouble::kNoMemory},
    {2, "flash recover 03:00.4 --continue --roll-back"},
    {2, "flash recover 03:00.4 --keep many"},
    {5, "flash recover 03:00.4 --continue", Trouble::kFlashLocked},
    {13, "flash recover 03:00.4 --continue", Trouble::kNoMemory},
    {13, "flash status 03:00.4", Trouble::kNoMemory},
    {1, "vm start web1"},
    {1, "vm suspend web2"},
    {1, "vm resume web1"},
    {1, "vm reboot web2"},
    {1, "vm shutdown web2"},
    {1, "vf attach web1 04:01.1"},
    {2, "vf attach web1 4"},
    {2, "vf detach web1 4"},
    {3, "vf detach web1 04:01.7"},
    {1, "bridge list web2"},
    {1, "bridge attach web1 br9"},
    {1, "bridge detach web2 testnet0"},
    {3, "bridge detach web1 testnet9"},
    {2, "report"},
    {2, "revert first"},
    {2, "confirm first"},
    {2, "history first"},
    {5, "revert --no-wait", Trouble::kLocked},
    {5, "confirm --no-wait", Trouble::kLocked},
    {2, "restore --no-wait --wait 1"},
    {4, "restore damaged.conf", Trouble::kNone, Form::kReport},
    {5, "restore --no-wait", Trouble::kLocked},
    {2, "repair --no-wait --wait 1"},
    {5, "repair --no-wait", Trouble::kLocked},
};

// A name that no host has, of the kind that the argument takes.
std::string unknown_name(std::string_view argument) {
    static const std::map<std::string_view, const char*> kNames = {
        {"LOCATION", "09:00.4"},
        {"MODULE", "iw_zfab9"},
        {"FILE", "no-such/file"},
        {"ID", "99"},
    };
    const auto found = kNames.find(argument);
    return found == kNames.end() ? "nobody" : found->second;
}

// The argument of a command that names an object first: a word, or else an option with a file.
const Argument* naming_argument(const Command& command) {
    const Argument* naming = nullptr;
    for (const Argument& argument : command.arguments) {
        if (!argument.is_option()) {
            return &argument;
        }
        if (std::string_view(argument.value) == "FILE") {
            naming = &argument;
        }
    }
    return naming;
}

// The first example of a command with an unknown name in place of the first name.
Row row_with_unknown_name(const Command& command, const Argument& naming) {
    std::vector<std::string> words = test::words_of(command.examples[0]);
    words.erase(words.begin());
    std::size_t at = test::words_of(command.name()).size();
    if (naming.is_option()) {
        words.resize(at);
        words.emplace_back(naming.name);
        ++at;
    }
    words.resize(std::max(words.size(), at + 1));
    words[at] = unknown_name(naming.is_option() ? naming.value : naming.name);
    const bool asks = std::ranges::any_of(command.arguments, [](const Argument& argument) {
        return std::string_view(argument.name) == "--yes";
    });
    if (asks) {
        words.emplace_back("--yes");
    }
    std::string line;
    for (const std::string& word : words) {
        line += (line.empty() ? "" : " ") + word;
    }
    return {std::string_view(command.noun) == "help" ? 2 : 3, line};
}

std::vector<Row> rows_with_unknown_names() {
    std::vector<Row> rows;
    for (const Command& command : commands()) {
        if (const Argument* const naming = naming_argument(command)) {
            rows.push_back(row_with_unknown_name(command, *naming));
        }
    }
    return rows;
}

const char* scenario_of(Trouble trouble) {
    switch (trouble) {
        case Trouble::kEmpty:
            return "empty";
        case Trouble::kNoDriver:
            return "no-driver";
        case Trouble::kNicOnly:
            return "nic-only-q3";
        case Trouble::kErased:
        case Trouble::kNoProductData:
            return "damaged-vpd";
        default:
            return "lab";
    }
}

bool is_of_hardware(Trouble trouble) {
    return trouble == Trouble::kBusyController || trouble == Trouble::kFlippedBit;
}

// All rows with one scenario share a host, because creating a host takes longer than a run; broken
// hardware has separate hosts.
kxsim::Host& host_of(Trouble trouble) {
    static std::map<std::pair<std::string, bool>, kxsim::Host> hosts;
    const char* const scenario = scenario_of(trouble);
    const auto [found, is_new] = hosts.try_emplace({scenario, is_of_hardware(trouble)});
    if (is_new) {
        kxsim::load_scenario(found->second, kxsim::find_scenario(scenario));
        found->second.directory("/etc/kestrix-plexo");
    }
    return found->second;
}

class ExitCodes : public testing::TestWithParam<Row> {
protected:
    ExitCodes() : host_(host_of(GetParam().trouble)), attached_(host_.attach()) {
        std::ofstream("damaged.conf") << "eth99.mtu = 1500\nbad\n";
        switch (GetParam().trouble) {
            case Trouble::kNoMemory:
                host_.fail({.call = "open", .times = 0, .error = EPERM, .object = "/dev/mem"});
                break;
            case Trouble::kLocked:
                files_.emplace(LockPurpose::kWrite, std::nullopt);
                break;
            case Trouble::kFlashLocked:
                flash_.emplace("03:00.4", "0000:03:00.4", "flash erase-boot");
                break;
            default:
                break;
        }
    }
    ~ExitCodes() override { host_.clear_faults(); }

    test::Result run(const char* more) {
        std::vector<std::string> words = test::words_of(GetParam().line);
        words.emplace_back(more);
        if (is_of_hardware(GetParam().trouble)) {
            const bool busy = GetParam().trouble == Trouble::kBusyController;
            host_.remove("/var/lib/kxctl");  // an unfinished change
            host_.hardware(words.at(2))
                .faults({.stuck_busy_at = busy ? 1U : 0U, .flipped_bit_at = busy ? 0U : 1U});
        }
        return test::run(words);
    }

    const test::ExampleDirectory directory_;
    kxsim::Host& host_;
    const kxsim::Attached attached_;
    std::optional<ConfigurationLock> files_;
    std::optional<FlashLock> flash_;
};

TEST_P(ExitCodes, ForPeopleComeWithOneLine) {
    const test::Result result = run("--color=never");
    EXPECT_EQ(result.exit, GetParam().exit) << result.err;
    if (GetParam().form == Form::kReport) {
        EXPECT_NE(result.out, "");
        return;
    }
    EXPECT_EQ(result.out, "");
    std::vector<std::string> lines = lines_of(result.err);
    if (GetParam().trouble == Trouble::kFlippedBit) {  // earlier steps are shown as progress
        std::erase_if(lines, [](const std::string& line) { return line.ends_with("%)"); });
    }
    EXPECT_THAT(lines, testing::ElementsAre(StartsWith("kxctl: "))) << result.err;
}

TEST_P(ExitCodes, ForProgramsComeWithOneValue) {
    const test::Result result = run("--json");
    EXPECT_EQ(result.exit, GetParam().exit) << result.err;
    const JsonText answer = JsonText::parse(result.out, nullptr, false);
    ASSERT_TRUE(answer.is_object()) << result.out;
    ASSERT_EQ(answer.contains("error"), GetParam().form == Form::kFailure) << result.out;
    if (GetParam().form == Form::kReport) {
        return;
    }
    EXPECT_EQ(answer.size(), 1U);
    const JsonText& error = answer.at("error");
    EXPECT_EQ(error.size(), 4U);
    EXPECT_EQ(error.at("code"), GetParam().exit);
    EXPECT_TRUE(error.at("status").is_null() || error.at("status").is_number_unsigned());
    EXPECT_THAT(error.at("text").get<std::string>(), Not(testing::IsEmpty()));
    EXPECT_TRUE(error.at("detail").is_array());
}

INSTANTIATE_TEST_SUITE_P(Rows, ExitCodes, testing::ValuesIn(kRows));
INSTANTIATE_TEST_SUITE_P(UnknownNames, ExitCodes, testing::ValuesIn(rows_with_unknown_names()));

TEST(ExitCodeRows, AreThereForEveryCommandThatNamesSomething) {
    std::set<const Command*> with_unknown_name;
    for (const Row& row : rows_with_unknown_names()) {
        if (row.exit == 3) {
            with_unknown_name.insert(parse(test::words_of(row.line)).command);
        }
    }
    for (const Command& command : commands()) {
        const bool names = std::ranges::any_of(command.arguments, [](const Argument& argument) {
            return !argument.is_option() || std::string_view(argument.value) == "FILE";
        });
        const bool is_help = std::string_view(command.noun) == "help";
        EXPECT_TRUE(!names || is_help || with_unknown_name.contains(&command)) << command.name();
    }
}

TEST(ExitCodeRows, AreThereForEveryCode) {
    std::set<int> missing;
    for (const ExitCodeRow& row : exit_codes()) {
        missing.insert(static_cast<int>(row.code));
    }
    missing.erase(0);  // every command ends with it in the tests of the standard streams
    for (const Row& row : kRows) {
        missing.erase(row.exit);
    }
    EXPECT_THAT(missing, testing::IsEmpty());
}

TEST(WrongUsage, IsFoundByEveryCommand) {
    for (const Command& command : commands()) {
        std::vector<std::string> words = test::words_of(command.name());
        words.emplace_back("--no-such-option");
        try {
            static_cast<void>(parse(words));
            ADD_FAILURE() << command.name();
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), ExitCode::kUsage);
            EXPECT_EQ(
                failure.line(), command.name() + " does not take --no-such-option (see --help)");
        }
    }
}

}  // namespace
