// flash dump, flash verify: the bytes of an adapter's flash, copied to a file or compared with one.
#include <fmt/core.h>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "files/digest.hpp"
#include "files/whole_file.hpp"
#include "flash/card.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"

namespace kx::ctl::flash {
namespace {

constexpr std::size_t kMostFlashBytes = std::size_t{1} << 24U;

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

// --all says what is done without --region.
std::string region_to_copy(const Arguments& arguments) {
    if (arguments.has("--all") && arguments.has("--region")) {
        throw Failure(ExitCode::kUsage, "flash dump: --all and --region exclude each other");
    }
    return arguments.get("--region", "all");
}

ExitCode dump(const Arguments& arguments, Output& output) {
    const std::string path = arguments.get("FILE");
    const std::string region = region_to_copy(arguments);
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
    const std::string digest = sha256(bytes);
    if (to_output) {
        output.bytes(bytes);
        complain("SHA-256 " + digest);
        return ExitCode::kDone;
    }
    write_new_file(path, bytes);
    if (output.wants_json()) {
        Json json = card.json();
        json["file"] = path;
        json["region"] = region;
        json["address"] = range.begin;
        json["size_bytes"] = range.size();
        json["sha256"] = digest;
        output.json(json);
    } else {
        output.text(fmt::format(
            "{} bytes from {:#x} written to {}\nSHA-256 {}\n", range.size(), range.begin, path,
            digest));
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
    const FlashCard card(adapter_location(arguments));
    const Range range = range_for(range_named(card, region), path, file.size());
    std::vector<std::uint8_t> flash = card.read(range, "Reading flash");
    flash.resize(file.size());
    const Comparison comparison = compare(file, flash);
    const std::string file_digest = sha256(file);
    const std::string flash_digest = sha256(flash);
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
        json["file_sha256"] = file_digest;
        json["flash_sha256"] = flash_digest;
        output.json(json);
    } else if (equal) {
        output.text(fmt::format(
            "{} bytes from {:#x} are those of {}\nSHA-256 {}\n", file.size(), range.begin, path,
            file_digest));
    } else {
        output.text(fmt::format(
            "{} of {} bytes differ from {}, the first at {:#x}\n"
            "SHA-256 of the flash  {}\nSHA-256 of the file   {}\n",
            comparison.different, file.size(), path, range.begin + comparison.first, flash_digest,
            file_digest));
    }
    return equal ? ExitCode::kDone : ExitCode::kPartly;
}

std::vector<Command> copy_rows() {
    return {
        {
            .noun = "flash",
            .verb = "dump",
            .help = "Copy the flash or a region of it to a file",
            .about = "Copies the bytes unchanged and tells their SHA-256 digest, for a copy to "
                     "standard output on standard error. It never replaces an existing file, and "
                     "leaves no file when the copy is incomplete.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "New file for the bytes, or - for standard output"},
                 {.name = "--region",
                  .help = "boot, config, firmware or all (default: all)",
                  .value = "NAME",
                  .choices = {"boot", "config", "firmware", "all"}},
                 {.name = "--all", .help = "The whole flash, as without --region"}},
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

const TablePart kCopyRows(805, copy_rows);

}  // namespace
}  // namespace kx::ctl::flash
