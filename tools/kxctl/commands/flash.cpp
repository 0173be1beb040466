// flash info, flash dump, flash verify: the identification and the content of an adapter's flash.
#include <fmt/core.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>

#include <cstring>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "files/digest.hpp"
#include "files/whole_file.hpp"
#include "flash/card.hpp"
#include "library/call.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::flash {
namespace {

constexpr std::size_t kMostFlashBytes = std::size_t{1} << 24U;

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
    Table facts({{}, {}});
    facts.add_row({"Card", card.name()});
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

Range range_named(const FlashCard& card, const std::string& name) {
    if (name == "all") {
        return {0, card.layout().size};
    }
    const FlashRegion* const region = card.layout().region(name);
    if (region == nullptr) {
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format("{}: the flash has no region {}", card.location(), name));
    }
    return region->range;
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

ExitCode dump(const Arguments& arguments, Output& output) {
    const std::string path = arguments.get("FILE");
    const std::string region = arguments.get("--region", "all");
    const bool to_output = Output::is_named(path);
    if (to_output) {
        output.must_be_free(Content::kBytes);
    } else {
        must_be_free(path);
    }
    const FlashCard card(adapter_location(arguments));
    const Range range = range_named(card, region);
    const std::string label = "Reading " + (region == "all" ? std::string("flash") : region);
    const std::vector<std::uint8_t> bytes = card.read(range, label);
    if (to_output) {
        output.bytes(bytes);
        return ExitCode::kDone;
    }
    write_new_file(path, bytes);
    if (output.wants_json()) {
        Json json = card.json();
        json["file"] = path;
        json["region"] = region;
        json["address"] = range.begin;
        json["size_bytes"] = range.size();
        output.json(json);
    } else {
        output.text(
            fmt::format("{} bytes from {:#x} written to {}\n", range.size(), range.begin, path));
    }
    return ExitCode::kDone;
}

// How a file differs from the flash.
struct Comparison {
    std::size_t different = 0;  // bytes
    std::size_t first = 0;      // of them, in the file
};

Comparison compare(const std::vector<std::uint8_t>& file, const std::vector<std::uint8_t>& flash) {
    Comparison comparison;
    for (std::size_t at = 0; at < file.size(); ++at) {
        if (file[at] != flash[at]) {
            comparison.first = comparison.different == 0 ? at : comparison.first;
            ++comparison.different;
        }
    }
    return comparison;
}

// The part of a region that a file is compared with. The flash is read in words.
Range range_for(const Range& region, const std::string& path, std::size_t bytes) {
    constexpr std::uint32_t kWord = sizeof(std::uint32_t);
    if (bytes == 0 || bytes > region.size()) {
        throw Failure(
            ExitCode::kUsage,
            fmt::format("{} has {} bytes, the region has {}", path, bytes, region.size()));
    }
    const auto size = static_cast<std::uint32_t>(bytes);
    return {region.begin, region.begin + (size + kWord - 1) / kWord * kWord};
}

ExitCode verify(const Arguments& arguments, Output& output) {
    const std::string path = arguments.get("FILE");
    const std::string region = arguments.get("--region", "all");
    const std::vector<std::uint8_t> file = read_whole_file(path, kMostFlashBytes);
    const FlashCard card(arguments.get("LOCATION"));
    const Range range = range_for(range_named(card, region), path, file.size());
    std::vector<std::uint8_t> flash = card.read(range, "Reading flash");
    flash.resize(file.size());
    const Comparison comparison = compare(file, flash);
    const bool equal = comparison.different == 0;
    if (output.wants_json()) {
        Json json = card.json();
        json["file"] = path;
        json["region"] = region;
        json["address"] = range.begin;
        json["size_bytes"] = file.size();
        json["equal"] = equal;
        json["different_bytes"] = comparison.different;
        json["first_difference"] = equal ? Json() : Json(range.begin + comparison.first);
        json["file_sha256"] = sha256(file);
        json["flash_sha256"] = sha256(flash);
        output.json(json);
    } else if (equal) {
        output.text(
            fmt::format("{} bytes from {:#x} are those of {}\n", file.size(), range.begin, path));
    } else {
        output.text(fmt::format(
            "{} of {} bytes differ from {}, the first at {:#x}\n", comparison.different,
            file.size(), path, range.begin + comparison.first));
    }
    return equal ? ExitCode::kDone : ExitCode::kPartly;
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
        {
            .noun = "flash",
            .verb = "dump",
            .help = "Copy the flash or a region of it to a file",
            .about = "Copies the bytes unchanged. It never replaces an existing file, and leaves "
                     "no file when the copy is incomplete.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "New file for the bytes, or - for standard output"},
                 {.name = "--region",
                  .help = "boot, config, firmware or all (default: all)",
                  .value = "NAME",
                  .choices = {"boot", "config", "firmware", "all"}}},
            .examples =
                {"kxctl flash dump 03:00.4 flash.bin",
                 "kxctl flash dump 03:00.4 rom.bin --region boot"},
            .run = dump,
        },
        {
            .noun = "flash",
            .verb = "verify",
            .help = "Compare the flash with a file",
            .about = "Compares the bytes of the file with the flash, from the first byte of the "
                     "flash or of a region on: a boot image, or what dump wrote. Ends with exit "
                     "status 4 when they differ. Changes nothing.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "The bytes to compare with"},
                 {.name = "--region",
                  .help = "boot, config, firmware or all (default: all)",
                  .value = "NAME",
                  .choices = {"boot", "config", "firmware", "all"}}},
            .examples =
                {"kxctl flash verify 03:00.4 rom.bin",
                 "kxctl flash verify 03:00.4 config.bin --region config"},
            .run = verify,
        },
    };
}

const TablePart kRows(800, rows);

}  // namespace
}  // namespace kx::ctl::flash
