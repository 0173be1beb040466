// flash info: the identification and the regions of an adapter's flash.
#include <fmt/core.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>

#include <cstring>

#include "commands/commands.hpp"
#include "flash/card.hpp"
#include "flash/change_report.hpp"
#include "library/call.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::flash {
namespace {

// The versions of the two boot images; empty when there is no image.
struct Contents {
    bool boot_valid = false;
    std::string boot_version;
    bool config_valid = false;
};

Contents q4_contents(std::uint8_t adapter) {
    Contents contents;
    std::uint32_t version = 0;
    call_library([&] {
        contents.boot_valid = Is_Valid_q4oprom_Present(adapter) == 0;
        contents.config_valid = Is_Valid_q4config_Present(adapter) == 0;
        version = read_q4biosversion_from_boot(adapter);
    });
    if (version != KX_BIOS_VERSION_UNKNOWN && version != 0xFFFFFFFF) {
        contents.boot_version = fmt::format(
            "{}.{}.{}.{}", version & 0xFF, version >> 8 & 0xFF, version >> 16 & 0xFF,
            version >> 24);
    }
    return contents;
}

Contents q3_contents(const FlashCard& card) {
    Contents contents;
    const std::vector<std::uint8_t> head = card.read({0, 4});
    contents.boot_valid = head[0] == 0x55 && head[1] == 0xAA;
    Q3OptionRomVersion rom{};
    Q3Settings settings{};
    call_library([&] {
        if (get_pxe_oprom_version(card.index(), &rom) == 0) {
            const unsigned version = rom.version;
            contents.boot_version =
                fmt::format("{}.{} build {}", version >> 8, version & 0xFF, unsigned{rom.build});
        }
        contents.config_valid = q3_read_settings(card.index(), &settings) == 0 &&
                                std::memcmp(settings.signature, "CIB", sizeof "CIB") == 0;
    });
    return contents;
}

Contents contents_of(const FlashCard& card) {
    card.open_window();
    return card.is_q3() ? q3_contents(card) : q4_contents(card.index());
}

// Only the flash of Q4 and Q5 identifies itself.
Json flash_json(const FlashCard& card) {
    const FlashLayout& layout = card.layout();
    const auto or_null = [](std::uint32_t number) { return number == 0 ? Json() : Json(number); };
    return {
        {"manufacturer", card.is_q3() ? Json() : Json(unsigned{KX_FLASH_MANUFACTURER})},
        {"size_bytes", layout.size},
        {"sectors", or_null(layout.sectors)},
        {"sector_size_bytes", or_null(layout.sector_size())},
    };
}

Json region_json(const FlashRegion& region, const Contents& contents) {
    const std::string_view name = region.name;
    Json json{{"name", name}, {"address", region.range.begin}, {"size_bytes", region.range.size()}};
    if (name == "boot") {
        json["valid"] = contents.boot_valid;
        json["version"] = text_or_null(contents.boot_version);
    } else if (name == "config") {
        json["valid"] = contents.config_valid;
    }
    return json;
}

Json info_json(const FlashCard& card, const Contents& contents) {
    Json regions = Json::array();
    for (const FlashRegion& region : card.layout().regions) {
        regions.push_back(region_json(region, contents));
    }
    Json json = card.json();
    json["flash"] = flash_json(card);
    json["regions"] = regions;
    return json;
}

std::string size_text(std::uint32_t size) { return fmt::format("{} KiB", size / 1024); }

Cell content_cell(std::string_view region, const Contents& contents) {
    if (region == "boot") {
        const std::string& version = contents.boot_version;
        return contents.boot_valid
                   ? Cell("valid" + (version.empty() ? "" : ", version " + version), Style::kGood)
                   : Cell("no option ROM");
    }
    if (region == "config") {
        return contents.config_valid ? Cell("valid", Style::kGood) : Cell("no valid record");
    }
    return "";
}

void print_info(const FlashCard& card, const Contents& contents, Output& output) {
    const FlashLayout& layout = card.layout();
    Table facts = card_table(card);
    facts.add_row({"Flash size", size_text(layout.size)});
    facts.add_row(
        {"Manufacturer",
         card.is_q3() ? "" : fmt::format("{:#04x}", unsigned{KX_FLASH_MANUFACTURER})});
    facts.add_row(
        {"Sectors",
         layout.sectors == 0
             ? ""
             : fmt::format("{} of {}", layout.sectors, size_text(layout.sector_size()))});
    output.table(facts);
    output.text("\n");
    Table regions(
        {{"REGION"}, {"ADDRESS", Align::kRight}, {"SIZE", Align::kRight}, {"HOLDS"}, {"STATE"}});
    for (const FlashRegion& region : layout.regions) {
        regions.add_row(
            {region.name, fmt::format("{:#x}", region.range.begin), size_text(region.range.size()),
             region.meaning, content_cell(region.name, contents)});
    }
    output.table(regions);
}

ExitCode info(const Arguments& arguments, Output& output) {
    const FlashCard card(adapter_location(arguments));
    const Contents contents = contents_of(card);
    if (output.wants_json()) {
        output.json(info_json(card, contents));
    } else {
        print_info(card, contents, output);
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "flash",
            .verb = "info",
            .help = "Show the flash of an adapter and its content",
            .about = "Size, manufacturer and sectors that the flash reports; each region with "
                     "its address and size, whether it contains a valid boot option ROM or "
                     "configuration, and the option ROM's version. Changes nothing.",
            .arguments = {kLocation},
            .examples = {"kxctl flash info 03:00.4", "kxctl --sim flash info 05:00.0 --json"},
            .run = info,
        },
    };
}

const TablePart kRows(800, rows);

}  // namespace
}  // namespace kx::ctl::flash
