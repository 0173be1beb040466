// The answers of kxctl with --json, checked against the shipped schemas: the golden outputs, and
// every command on hosts where it works and where it fails. Needs Python 3 with jsonschema.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "cli/command_line.hpp"
#include "cli/simulation.hpp"
#include "kxctl/every_command.hpp"

namespace {

namespace fs = std::filesystem;
using kx::ctl::Command;
using Json = nlohmann::json;

struct Definition {
    std::string file;
    std::string name;
};

Definition definition_of(const Command& command) {
    return {command.noun, *command.verb == '\0' ? command.noun : command.verb};
}

Definition definition_of(const Command& command, const Json& document) {
    return document.contains("error") ? Definition{"common", "failure"} : definition_of(command);
}

test::Result python(const std::vector<std::string>& words) {
    test::Setup setup;
    setup.program = "/usr/bin/python3";
    return test::run(words, setup);
}

bool has_validator() { return python({"-c", "import jsonschema"}).exit == 0; }

class Schema : public testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists("/usr/bin/python3") || !has_validator()) {
            GTEST_SKIP() << "no Python 3 with jsonschema (Debian package python3-jsonschema)";
        }
    }

    void add(const Definition& definition, const std::string& title, const Json& document) {
        rows_ +=
            Json{
                {"file", definition.file},
                {"definition", definition.name},
                {"title", title},
                {"document", document}}
                .dump() +
            "\n";
        ++count_;
    }

    // What the validator says of all documents; nothing when they are valid.
    std::string complaints() {
        std::string path = fs::temp_directory_path() / "kxctl-answers-XXXXXX";
        close(mkstemp(path.data()));
        std::ofstream(path) << rows_;
        test::Setup setup;
        setup.program = "sh";
        const test::Result result = test::run(
            {"-c", "exec /usr/bin/python3 \"$1\" \"$2\" < \"$3\"", "sh", KXCTL_VALIDATOR,
             KXCTL_SCHEMA_DIRECTORY, path},
            setup);
        fs::remove(path);
        return result.exit == 0 ? result.out : result.out + result.err + "(failed)";
    }

    // Run a command line that must print one JSON value, and record the value.
    Json take(const Definition& definition, std::vector<std::string> words, int expected = -1) {
        std::string title = "kxctl";
        for (const std::string& word : words) {
            title += " " + word;
        }
        const test::Result result = test::run(std::move(words));
        const Json document = Json::parse(result.out, nullptr, false);
        if (document.is_discarded()) {
            ADD_FAILURE() << title << ": no JSON: " << result.out << result.err;
            return document;
        }
        const bool failed = document.contains("error");
        if (failed) {
            EXPECT_EQ(document.at("error").at("code"), result.exit) << title;
        }
        if (expected != -1) {
            EXPECT_EQ(result.exit, expected) << title << result.err;
        }
        add(failed ? Definition{"common", "failure"} : definition, title, document);
        return document;
    }

    int count() const { return count_; }

private:
    std::string rows_;
    int count_ = 0;
};

TEST_F(Schema, FindsAnswersThatAreNotValid) {
    add({"version", "version"}, "key not described",
        Json::parse(R"({"kxctl": {"version": "1"}, "library": {"name": "n", "version": "1",
            "version_word": 1}, "pci_vendor_id": 1, "more": 1})"));
    add({"vm", "list"}, "key missing", Json::parse(R"({"vms": [{"name": "a"}]})"));
    add({"repair", "repair"}, "type", Json::parse(R"({"files": 3})"));
    add({"card", "no-such"}, "definition", Json());
    const std::string all = complaints();
    for (const char* title : {"key not described", "key missing", "type", "definition"}) {
        EXPECT_THAT(all, testing::HasSubstr(title));
    }
}

TEST_F(Schema, HoldsForEveryKeptOutput) {
    for (const fs::directory_entry& entry : fs::directory_iterator(KXCTL_GOLDEN_DIRECTORY)) {
        std::ifstream file(entry.path());
        std::string line;
        std::getline(file, line);
        std::ostringstream rest;
        rest << file.rdbuf();
        const std::string text = rest.str();
        if (!text.starts_with("{")) {
            continue;
        }
        std::vector<std::string> words = test::words_of(line);
        words.erase(words.begin(), words.begin() + 2);
        const auto invocation = kx::ctl::parse(kx::ctl::take_simulation(words).words);
        const Json document = Json::parse(text.substr(0, text.find("\n--- ")));
        ASSERT_NE(invocation.command, nullptr) << entry.path();
        add(definition_of(*invocation.command, document), entry.path().filename(), document);
    }
    EXPECT_GE(count(), 20);
    EXPECT_EQ(complaints(), "");
}

TEST_F(Schema, HoldsForEveryCommandOnHostsWhereItWorksAndFails) {
    const test::ExampleDirectory directory;
    for (const Command* command : test::all_commands()) {
        for (const char* scenario : {"lab", "empty", "no-driver", "nic-only-q3", "damaged-vpd"}) {
            std::vector<std::string> words = test::example_of(*command);
            words.insert(words.end(), {"-j", std::string("--sim=") + scenario});
            take(definition_of(*command), words);
        }
    }
    EXPECT_EQ(complaints(), "");
}

TEST_F(Schema, HoldsForChangesAndReadings) {
    const test::ExampleDirectory directory;
    take({"port", "set"}, {"--sim", "-j", "port", "set", "03:00.4", "1", "mtu=1500", "gso=on"}, 0);
    take({"port", "set"}, {"--sim", "-j", "port", "set", "03:00.4", "1", "mtu=21"}, 1);
    take({"offload", "set"}, {"--sim", "-j", "offload", "set", "03:00.4", "mss=1460"}, 0);
    take({"iwarp", "set"}, {"--sim", "-j", "iwarp", "set", "iw_zfab4", "peer2peer=1"}, 0);
    take(
        {"flash", "config-default"}, {"--sim", "-j", "flash", "config-default", "03:00.4", "--yes"},
        0);
    take(
        {"port", "stats"},
        {"--sim", "-j", "port", "stats", "03:00.4", "1", "--watch", "0.01", "--count", "1"}, 0);
    take(
        {"card", "stats"},
        {"--sim", "-j", "card", "stats", "05:00.0", "--watch", "0.01", "--count", "1"}, 0);
    std::ofstream("saved.conf") << "eth2.mtu = 9000\neth99.mtu = 1500\neth2.gso = 7777\nbad\n";
    take({"restore", "restore"}, {"--sim", "-j", "restore", "saved.conf"}, 4);
    EXPECT_EQ(complaints(), "");
}

TEST_F(Schema, HoldsForHelpVersionAndCommandLinesThatCannotBeMeant) {
    take({"kxctl", "help"}, {"--help", "-j"}, 0);
    take({"kxctl", "help"}, {"port", "--help", "-j"}, 0);
    take({"kxctl", "help"}, {"port", "set", "--help", "-j"}, 0);
    take({"kxctl", "version"}, {"--version", "-j"}, 0);
    take({"common", "failure"}, {"-j"}, 2);
    take({"common", "failure"}, {"-j", "bogus"}, 2);
    take({"common", "failure"}, {"-j", "port", "list"}, 2);
    take({"common", "failure"}, {"-j", "port", "list", "--bogus"}, 2);
    take({"common", "failure"}, {"-j", "--sim=no-such-scenario", "card", "list"}, 2);
    take({"common", "failure"}, {"-j", "--sim=", "card", "list"}, 2);
    EXPECT_EQ(complaints(), "");
}

}  // namespace
