// flash write-boot, erase-boot, config-default, config-erase, config-write: the commands that
// replace or erase the boot images of an adapter.
#include <fmt/core.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>

#include <cstring>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "files/whole_file.hpp"
#include "flash/boot_image.hpp"
#include "flash/boot_record.hpp"
#include "flash/change.hpp"
#include "flash/transaction.hpp"
#include "library/call.hpp"

namespace kx::ctl::flash {
namespace {

using FileBytes = std::vector<std::uint8_t>;

constexpr std::size_t kConfigRegion = 0x10000;
constexpr std::string_view kQ4Signature = "CBIO";
constexpr std::string_view kQ3Signature{"CIB\0", 4};

[[noreturn]] void refuse(const std::string& path, const std::string& text) {
    throw Failure(ExitCode::kUsage, path + ": " + text);
}

bool begins_with(const FileBytes& bytes, std::string_view signature) {
    return bytes.size() >= signature.size() &&
           std::memcmp(bytes.data(), signature.data(), signature.size()) == 0;
}

void must_have(const FlashCard& card, const char* region) {
    if (card.layout().region(region) == nullptr) {
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format("{}: the flash is too small for a boot image", card.location()));
    }
}

// The record itself, from a file that contains it with or without the rest of its region.
FileBytes read_record_file(const FlashCard& card, const std::string& path) {
    FileBytes record = read_whole_file(path, kConfigRegion);
    const std::size_t size = card.is_q3() ? sizeof(Q3Settings) : sizeof(Q4BootConfig);
    if (record.size() < size) {
        refuse(path, fmt::format("a record of {} has {} bytes", card.chip(), size));
    }
    if (!begins_with(record, card.is_q3() ? kQ3Signature : kQ4Signature)) {
        refuse(path, fmt::format("this is no record of {}", card.chip()));
    }
    record.resize(size);
    return record;
}

// The library writes no default record for an adapter without an option ROM, because the record
// contains the option ROM's version.
void must_have_option_rom(const FlashCard& card) {
    card.open_window();
    const std::uint32_t version =
        call_library([&] { return read_q4biosversion_from_boot(card.index()); });
    if (version == KX_BIOS_VERSION_UNKNOWN || version == 0xFFFFFFFF) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format("{}: there is no boot option ROM to configure", card.location()));
    }
}

// The number of ports for a default record: that of the product unless the user gives it.
std::uint32_t port_count(const FlashCard& card, const Arguments& arguments) {
    const std::string ports = arguments.get("--ports");
    if (!ports.empty()) {
        return static_cast<std::uint32_t>(ports.front() - '0');
    }
    constexpr unsigned kProductDigits =
        0xF0FF;  // part of a device id; the other part belongs to the function
    const std::string product = fmt::format("{:x}", card.device_id() & kProductDigits);
    const std::uint32_t known = call_library([&] { return getPortsQ4(product.c_str()); });
    if (known == 0) {
        throw Failure(
            ExitCode::kUsage,
            fmt::format(
                "{}: how many ports device {:04x} has is not known; --ports tells", card.location(),
                card.device_id()));
    }
    return known;
}

ExitCode run_erase(
    const char* command, const char* region, const Arguments& arguments, Output& output) {
    check_change_options(command, arguments);
    const FlashCard card = card_to_change(command, arguments);
    must_have(card, region);
    const FlashChange change{
        .card = &card,
        .plan = plan_erase(card.layout(), region),
        .doing = std::string_view(region) == "boot" ? "erasing the boot option ROM"
                                                    : "erasing the configuration",
    };
    return run_change(command, change, arguments, output);
}

ExitCode run_write_record(
    const char* command, const FlashCard& card, const FileBytes& record, const Arguments& arguments,
    Output& output) {
    const FlashChange change{
        .card = &card,
        .plan = plan_record(card.layout(), static_cast<std::uint32_t>(record.size())),
        .doing = "writing the configuration",
        .content = record,
    };
    return run_change(command, change, arguments, output);
}

ExitCode write_boot(const Arguments& arguments, Output& output) {
    constexpr const char* kCommand = "flash write-boot";
    check_change_options(kCommand, arguments);
    BootImage image(arguments.get("FILE"), arguments.has("--force"));
    const FlashCard card = card_to_change(kCommand, arguments);
    must_have(card, "boot");
    image.check(card);
    const FlashChange change{
        .card = &card,
        .plan = plan_boot_image(card.layout(), static_cast<std::uint32_t>(image.bytes().size())),
        .doing = "writing the boot image",
        .content = image.bytes(),
        .image = &image,
    };
    return run_change(kCommand, change, arguments, output);
}

ExitCode erase_boot(const Arguments& arguments, Output& output) {
    return run_erase("flash erase-boot", "boot", arguments, output);
}

ExitCode config_erase(const Arguments& arguments, Output& output) {
    return run_erase("flash config-erase", "config", arguments, output);
}

// The default of Q3 adapters is an empty block. The library creates the default record of the other
// adapters.
ExitCode config_default(const Arguments& arguments, Output& output) {
    constexpr const char* kCommand = "flash config-default";
    check_change_options(kCommand, arguments);
    const FlashCard card = card_to_change(kCommand, arguments);
    must_have(card, "config");
    if (card.is_q3()) {
        return run_write_record(kCommand, card, settings_block({}), arguments, output);
    }
    refuse_unfinished(card);  // which may be why there is no option ROM
    must_have_option_rom(card);
    const FileBytes record = default_record(card, port_count(card, arguments));
    return run_write_record(kCommand, card, record, arguments, output);
}

ExitCode config_write(const Arguments& arguments, Output& output) {
    constexpr const char* kCommand = "flash config-write";
    check_change_options(kCommand, arguments);
    const FlashCard card = card_to_change(kCommand, arguments);
    must_have(card, "config");
    FileBytes record = read_record_file(card, arguments.get("FILE"));
    if (card.is_q3()) {
        record = settings_block(std::move(record));
    }
    return run_write_record(kCommand, card, record, arguments, output);
}

const Argument kYes{.name = "--yes", .help = "Do not ask; required without a terminal"};
const Argument kBackup{
    .name = "--backup",
    .help =
        "First save the old content to this new file (default name: location, region and "
        "time)",
    .value = "FILE",
};
const Argument kNoBackup{.name = "--no-backup", .help = "Do not save the old content"};
const Argument kFlashDryRun{
    .name = "--dry-run",
    .help = "Show the sectors and pages, change nothing",
};

std::vector<Command> boot_rows() {
    return {
        {
            .noun = "flash",
            .verb = "write-boot",
            .help = "Write a boot option ROM",
            .about = "Checks the structure of the images in the file and that they are for the "
                     "adapter. Erases the sectors for the image, writes it and reads it back. Asks "
                     "first, and saves everything that may change. The first page is written "
                     "last, so that an interrupted write leaves no valid option ROM instead of a "
                     "partial one; \"flash recover\" then finishes the write or takes it back.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "The image, which begins with 55 aa"},
                 {.name = "--force",
                  .help = "Write an image with mistakes or for another adapter; names them"},
                 kYes,
                 kBackup,
                 kNoBackup,
                 kKeep,
                 kFlashDryRun},
            .examples =
                {"kxctl flash write-boot 03:00.4 rom.bin",
                 "kxctl flash write-boot 03:00.4 rom.bin --yes --backup old.bin"},
            .run = write_boot,
        },
        {
            .noun = "flash",
            .verb = "erase-boot",
            .help = "Erase the boot option ROM",
            .about = "Erases the region \"boot\" and reads it back. Asks first, and saves "
                     "everything that may change.",
            .arguments = {kLocation, kYes, kBackup, kNoBackup, kKeep, kFlashDryRun},
            .examples =
                {"kxctl flash erase-boot 03:00.4", "kxctl flash erase-boot 03:00.4 --dry-run"},
            .run = erase_boot,
        },
    };
}

const TablePart kBootRows(810, boot_rows);

std::vector<Command> config_rows() {
    return {
        {
            .noun = "flash",
            .verb = "config-default",
            .help = "Write the default boot configuration",
            .about =
                "Replaces the configuration record by the default one (Q3: the settings block by "
                "an empty one), and reads it back. The default record requires an option ROM in "
                "the flash. Asks first, and saves everything that may change.",
            .arguments =
                {kLocation,
                 {.name = "--ports",
                  .help = "Ports of the record, 1 to 4 (default: those of the product)",
                  .value = "N",
                  .choices = {"1", "2", "3", "4"}},
                 kYes,
                 kBackup,
                 kNoBackup,
                 kKeep,
                 kFlashDryRun},
            .examples =
                {"kxctl flash config-default 03:00.4",
                 "kxctl flash config-default 03:00.4 --ports 2 --yes"},
            .run = config_default,
        },
        {
            .noun = "flash",
            .verb = "config-erase",
            .help = "Erase the boot configuration",
            .about = "Erases the region \"config\" and reads it back. Asks first, and saves "
                     "everything that may change.",
            .arguments = {kLocation, kYes, kBackup, kNoBackup, kKeep, kFlashDryRun},
            .examples =
                {"kxctl flash config-erase 03:00.4",
                 "kxctl flash config-erase 05:00.0 --yes --no-backup"},
            .run = config_erase,
        },
        {
            .noun = "flash",
            .verb = "config-write",
            .help = "Write a saved boot configuration",
            .about = "Writes the record at the beginning of the file, for example from a copy "
                     "that config-erase or config-default saved, and reads it back. Asks first, "
                     "and saves everything that may change.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "The record, with or without the rest of its region"},
                 kYes,
                 kBackup,
                 kNoBackup,
                 kKeep,
                 kFlashDryRun},
            .examples =
                {"kxctl flash config-write 03:00.4 config.bin",
                 "kxctl flash config-write 03:00.4 config.bin --dry-run"},
            .run = config_write,
        },
    };
}

const TablePart kConfigRows(830, config_rows);

}  // namespace
}  // namespace kx::ctl::flash
