// report: one page about the whole host, made from the answers of the other commands.
#include <fmt/chrono.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "files/replaced_file.hpp"
#include "library/machine_states.hpp"
#include "output/counted.hpp"
#include "output/output.hpp"
#include "report/answers.hpp"
#include "report/page.hpp"

namespace kx::ctl::host_report {
namespace {

std::string host_name() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "this host";
}

bool has_failed(const Json& answer) { return answer.contains("failure"); }

// The answers of commands; what they lack is noted.
class Answers {
public:
    [[nodiscard]] Json to(std::string_view command, GivenWords words = {}) {
        Json answer = answer_or_failure(command, words);
        if (answer.contains("incomplete")) {
            gaps_.add(answer.at("incomplete").get<std::vector<std::string>>());
        }
        if (has_failed(answer) && !answer.at("absent").get<bool>()) {
            std::string line(command);
            for (const auto& word : words) {
                line += " " + word.second;
            }
            failed_.add(fmt::format("{}: {}", line, answer.at("failure").get<std::string>()));
        }
        return answer;
    }

    // What is null in them, and the commands that failed.
    [[nodiscard]] const Incomplete& gaps() const { return gaps_; }
    [[nodiscard]] const Incomplete& failed() const { return failed_; }

private:
    Incomplete gaps_;
    Incomplete failed_;
};

// The locations of all cards: cards with a driver, and adapters without one.
std::vector<std::string> locations_in(const Json& cards, const Json& adapters) {
    std::vector<std::string> locations;
    for (const auto& [answer, key] : {std::pair(&cards, "cards"), {&adapters, "adapters"}}) {
        if (has_failed(*answer)) {
            continue;
        }
        for (const Json& record : answer->at(key)) {
            const auto location = record.at("location").get<std::string>();
            if (std::find(locations.begin(), locations.end(), location) == locations.end()) {
                locations.push_back(location);
            }
        }
    }
    return locations;
}

// The record of a location in an answer, the answer's failure, or an empty record.
Json record_at(const Json& answer, const char* key, const std::string& location) {
    if (has_failed(answer)) {
        return answer;
    }
    for (const Json& record : answer.at(key)) {
        if (record.at("location") == location) {
            return record;
        }
    }
    return Json::object();
}

Json ports_at(Answers& answers, const std::string& location) {
    const Json answer = answers.to("port list", {{"LOCATION", location}});
    if (has_failed(answer)) {
        return Json::array({answer});
    }
    Json ports = answer.at("ports");
    for (Json& one : ports) {
        one["counters"] =
            answers.to("port stats", {{"LOCATION", one.at("interface").get<std::string>()}});
    }
    return ports;
}

Json card_at(Answers& answers, const std::string& location, const Json& cards) {
    return {
        {"location", location},
        {"card", record_at(cards, "cards", location)},
        {"adapter", answers.to("adapter show", {{"LOCATION", location}})},
        {"ports", ports_at(answers, location)},
        {"counters", answers.to("card stats", {{"LOCATION", location}})},
        {"flash", answers.to("flash info", {{"LOCATION", location}})},
        {"vpd", answers.to("vpd show", {{"LOCATION", location}})}};
}

Json machines_with_functions(Answers& answers) {
    if (!has_virsh()) {
        return {{"vms", Json::array()}};  // a host without libvirt has no machines
    }
    Json answer = answers.to("vm list");
    if (!has_failed(answer)) {
        for (Json& machine : answer.at("vms")) {
            const Json& uuid = machine.at("uuid");
            machine["functions"] = uuid.is_null()
                                       ? Json{{"failure", "The UUID of the machine is not known"}}
                                       : answers.to("vf list", {{"VM", uuid.get<std::string>()}});
        }
    }
    return answer;
}

Json host_answers(Answers& answers) {
    const Json cards = answers.to("card list");
    const Json adapters = answers.to("adapter list");
    Json all = Json::array();
    for (const std::string& location : locations_in(cards, adapters)) {
        all.push_back(card_at(answers, location, cards));
    }
    return {
        {"name", host_name()},
        {"time", fmt::format("{:%Y-%m-%d %H:%M:%S UTC}", fmt::gmtime(std::time(nullptr)))},
        {"version", answers.to("version")},
        {"cards", all.empty() && has_failed(cards) ? cards : all},
        {"modules", answers.to("module list")},
        {"vms", machines_with_functions(answers)}};
}

// Every failure in the answers, in their order.
void collect_failures(const Json& value, Json& failures) {
    if (value.is_object() && has_failed(value)) {
        failures.push_back(value.at("failure"));
    } else if (value.is_structured()) {
        for (const Json& part : value) {
            collect_failures(part, failures);
        }
    }
}

ExitCode run(const Arguments& arguments, Output& output) {
    const std::string file = arguments.get("--html");
    if (file.empty()) {
        refuse_usage("report: expected --html FILE");
    }
    if (Output::is_named(file)) {
        output.must_be_free(Content::kText);
    }
    Answers answers;
    Json host = host_answers(answers);
    answers.gaps().put_into(host);  // the page shows failures in their places
    output.incomplete().add(answers.gaps().reasons());
    output.incomplete().add(answers.failed().reasons());
    const std::string text = page::report_page(host);
    if (Output::is_named(file)) {
        output.text(text);
        return ExitCode::kDone;
    }
    replace_file(file, text);
    const std::size_t cards = host.at("cards").is_array() ? host.at("cards").size() : 0;
    if (output.wants_json()) {
        Json failures = Json::array();
        collect_failures(host, failures);
        output.json(Json{
            {"file", file}, {"size_bytes", text.size()}, {"cards", cards}, {"failures", failures}});
    } else {
        output.text(fmt::format(
            "{}, {} written to {}\n", counted(cards, "card"), counted(text.size(), "byte"), file));
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "report",
            .verb = "",
            .help = "Write a page about the whole host",
            .about = "One HTML file that needs no other files and no network: first the problems "
                     "(links that are down, counted errors, missing images, damaged product "
                     "data), each with a link to its place; then cards with ports, "
                     "links, counters, flash and product data, driver modules, virtual machines "
                     "with their virtual functions. Where something cannot be read, the page "
                     "says why.",
            .arguments =
                {{.name = "--html",
                  .help = "The file, which is replaced, or - for standard output",
                  .value = "FILE"}},
            .examples = {"kxctl report --html host.html", "kxctl --sim report --html lab.html"},
            .run = run,
        },
    };
}

const TablePart kRows(1300, rows);

}  // namespace
}  // namespace kx::ctl::host_report
