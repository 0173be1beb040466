#include "flash/change_report.hpp"

#include <fmt/core.h>

#include "files/digest.hpp"
#include "flash/boot_image.hpp"

namespace kx::ctl {
namespace {

using Names = std::vector<std::string>;

std::string sectors_text(const FlashPlan& plan) {
    const std::uint32_t first = plan.sectors.front();
    const std::uint32_t last = plan.sectors.back();
    const std::string numbers =
        first == last ? fmt::format("sector {}", first) : fmt::format("sectors {}-{}", first, last);
    return numbers + ", " + range_text(plan.erased);
}

std::string pages_text(const FlashPlan& plan) {
    std::string text;
    for (const PageRun& run : plan.pages) {
        text += fmt::format(
            "{}{} page{}, {}", text.empty() ? "" : "; then ", run.count, run.count == 1 ? "" : "s",
            range_text(run.bytes));
    }
    return text;
}

// Other regions that a part of the flash belongs to.
void add_regions(const FlashCard& card, const FlashPlan& plan, const Range& part, Names& names) {
    for (const FlashRegion& region : card.layout().regions) {
        if (&region != plan.region && !part.empty() && region.range.meets(part)) {
            names.emplace_back(region.name);
        }
    }
}

Names regions_lost(const FlashCard& card, const FlashPlan& plan) {
    Names names;
    add_regions(card, plan, plan.replaced, names);
    return names;
}

Names regions_put_back(const FlashCard& card, const FlashPlan& plan) {
    Names names;
    for (const Range& part : plan.put_back()) {
        add_regions(card, plan, part, names);
    }
    return names;
}

std::string joined(const Names& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

Json sector_list(const FlashPlan& plan) {
    return {
        {"numbers", plan.sectors},
        {"address", plan.erased.begin},
        {"size_bytes", plan.erased.size()}};
}

Json page_list(const FlashPlan& plan) {
    Json runs = Json::array();
    for (const PageRun& run : plan.pages) {
        runs.push_back(
            {{"address", run.bytes.begin}, {"size_bytes", run.bytes.size()}, {"count", run.count}});
    }
    return runs;
}

Json backup_json(
    const FlashPlan& plan, const ChangeContents& contents,
    const std::optional<std::string>& backup) {
    if (!backup) {
        return nullptr;
    }
    return {
        {"file", *backup},
        {"address", plan.touched().begin},
        {"size_bytes", plan.touched().size()},
        {"sha256", sha256(contents.whole)}};
}

void add_image(const FlashChange& change, Table& table) {
    if (change.image == nullptr) {
        return;
    }
    table.add_row({"Image", change.image->text()});
    for (const std::string& mistake : change.image->mistakes()) {
        table.add_row({"Forced", Cell(mistake, Style::kBad)});
    }
}

Json report_json(
    const FlashChange& change, const FlashPlan& plan, const ChangeContents& contents,
    const std::optional<std::string>& backup, bool dry) {
    Json json = change.card->json();
    json["region"] = plan.region->name;
    json["image"] = change.image == nullptr ? Json() : change.image->json();
    json["dry_run"] = dry;
    json["changed"] = contents.differ() && !dry;
    json["erased"] = sector_list(plan);
    json["also_erased"] = regions_lost(*change.card, plan);
    json["put_back"] = regions_put_back(*change.card, plan);
    json["written"] = page_list(plan);
    json["old_sha256"] = sha256(contents.old_bytes);
    json["new_sha256"] = sha256(contents.new_bytes);
    json["backup"] = backup_json(plan, contents, backup);
    json["verified"] = !dry;
    return json;
}

}  // namespace

Table card_table(const FlashCard& card) {
    Table table({{}, {}});
    table.add_row({"Card", card.name()});
    table.add_row({"Interfaces", card.interfaces_text()});
    return table;
}

// A flash that has the content already is neither erased nor written.
void report_no_change(
    const FlashChange& change, const ChangeContents& contents, bool dry, Output& output) {
    const FlashPlan nothing{.region = change.plan.region};
    if (output.wants_json()) {
        output.json(report_json(change, nothing, contents, std::nullopt, dry));
        return;
    }
    Table table = card_table(*change.card);
    table.add_row({"Region", nothing.region->name});
    add_image(change, table);
    table.add_row({"Change", "none: the flash has this content already"});
    table.add_row({"SHA-256", sha256(contents.old_bytes)});
    output.table(table);
}

void report_change(
    const FlashChange& change, const ChangeContents& contents,
    const std::optional<std::string>& backup, bool dry, Output& output) {
    const FlashPlan& plan = change.plan;
    const bool done = !dry;
    if (output.wants_json()) {
        output.json(report_json(change, plan, contents, backup, dry));
        return;
    }
    Table table = card_table(*change.card);
    table.add_row({"Region", plan.region->name});
    add_image(change, table);
    table.add_row({done ? "Erased" : "Would erase", sectors_text(plan)});
    if (const Names lost = regions_lost(*change.card, plan); !lost.empty()) {
        table.add_row({done ? "Also erased" : "Would also erase", Cell(joined(lost), Style::kBad)});
    }
    if (!plan.pages.empty()) {
        table.add_row({done ? "Written" : "Would write", pages_text(plan)});
    }
    if (const Names shared = regions_put_back(*change.card, plan); !shared.empty()) {
        table.add_row({done ? "Put back" : "Would put back", "part of " + joined(shared)});
    }
    table.add_row({done ? "Copy" : "Would copy to", backup.value_or("")});
    table.add_row({"SHA-256 before", sha256(contents.old_bytes)});
    table.add_row({done ? "SHA-256 now" : "SHA-256 after", sha256(contents.new_bytes)});
    if (done) {
        table.add_row({"Read back", Cell("as it should be", Style::kGood)});
    }
    output.table(table);
}

std::string change_question(
    const FlashChange& change, const ChangeContents& contents,
    const std::optional<std::string>& backup) {
    const FlashPlan& plan = change.plan;
    const std::string interfaces = change.card->interfaces_text();
    std::string text = fmt::format(
        "Card {}\ninterfaces: {}\nregion {}: erase {}", change.card->name(),
        interfaces.empty() ? "none" : interfaces, plan.region->name, sectors_text(plan));
    if (const Names lost = regions_lost(*change.card, plan); !lost.empty()) {
        text += fmt::format(" (this also erases part of {})", joined(lost));
    }
    if (!plan.pages.empty()) {
        text += fmt::format(", write {}", pages_text(plan));
    }
    if (const Names shared = regions_put_back(*change.card, plan); !shared.empty()) {
        text += fmt::format(", put part of {} back", joined(shared));
    }
    text += fmt::format(
        "\nSHA-256 before {}\nSHA-256 after  {}", sha256(contents.old_bytes),
        sha256(contents.new_bytes));
    for (const std::string& mistake : change.image ? change.image->mistakes() : Names()) {
        text += "\nalthough " + mistake;
    }
    return text + "\n" + (backup ? "copy before: " + *backup : "no copy is made before");
}

}  // namespace kx::ctl
