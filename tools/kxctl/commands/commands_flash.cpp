// The commands that read the adapters themselves: data sheet, product data, flash.
#include "commands/commands.hpp"
#include "commands/nouns.hpp"

namespace kx::ctl {
namespace {

const Argument kAdapter{
    .name = "LOCATION",
    .help = "PCI bus location of the adapter, as \"adapter list\" shows it",
};
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

}  // namespace

std::vector<Command> flash_commands() {
    return {
        {
            .noun = "adapter",
            .verb = "list",
            .help = "Show the adapters with data from their EEPROM and flash",
            .about = "One line for each adapter: chip, product, serial number, MAC address of "
                     "its first port, number of ports, version of the boot option ROM. Reads the "
                     "adapters themselves, so it needs no driver; takes about half a second for "
                     "each adapter.",
            .arguments = {},
            .examples = {"kxctl adapter list", "kxctl --sim adapter list --json"},
            .run = adapter::list,
        },
        {
            .noun = "adapter",
            .verb = "show",
            .help = "Show the data sheet of an adapter",
            .about = "Product, part and serial number, MAC address, ports, the versions V0 and "
                     "V5 (V7 of a Q3) of its product data, boot option ROM and boot "
                     "configuration. Configuration fields that only the option ROM understands "
                     "are named by their offset.",
            .arguments = {kAdapter},
            .examples = {"kxctl adapter show 04:00.4", "kxctl --sim adapter show 04:00.4 --json"},
            .run = adapter::show,
        },
        {
            .noun = "vpd",
            .verb = "show",
            .help = "Show the vital product data of an adapter",
            .about = "Every keyword in the EEPROM, with the position of its value; values that "
                     "are not text are shown in hexadecimal. Exit code 4 when the checksum is "
                     "wrong or the data are damaged; the output then says what is wrong.",
            .arguments =
                {kAdapter,
                 {.name = "--raw",
                  .help = "Also write the data to this file, byte for byte",
                  .value = "FILE"}},
            .examples = {"kxctl vpd show 04:00.4", "kxctl --sim vpd show 04:00.4 --raw vpd.bin"},
            .run = vpd::show,
        },
        {
            .noun = "flash",
            .verb = "info",
            .help = "Show the flash of an adapter and its content",
            .about = "Size, manufacturer and sectors that the flash reports; each region with "
                     "its address and size, whether it contains a valid boot option ROM or "
                     "configuration, and the option ROM's version. Changes nothing.",
            .arguments = {kLocation},
            .examples = {"kxctl flash info 03:00.4", "kxctl --sim flash info 05:00.0 --json"},
            .run = flash::info,
        },
        {
            .noun = "flash",
            .verb = "dump",
            .help = "Copy the flash or a region of it to a file",
            .about = "Copies the bytes unchanged. It never replaces an existing file, and leaves "
                     "no file when the copy is incomplete.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "New file for the bytes"},
                 {.name = "--region",
                  .help = "boot, config, firmware or all (default: all)",
                  .value = "NAME",
                  .choices = {"boot", "config", "firmware", "all"}}},
            .examples =
                {"kxctl flash dump 03:00.4 flash.bin",
                 "kxctl flash dump 03:00.4 rom.bin --region boot"},
            .run = flash::dump,
        },
        {
            .noun = "flash",
            .verb = "write-boot",
            .help = "Write a boot option ROM",
            .about = "Erases the sectors for the image, writes the image and reads it back. Asks "
                     "first, and saves everything that may change. On Q4 and Q5 the first page "
                     "is written last, so that an interrupted write leaves no valid option ROM "
                     "instead of a partial one.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "The image, which begins with 55 aa"},
                 kYes,
                 kBackup,
                 kNoBackup,
                 kFlashDryRun},
            .examples =
                {"kxctl flash write-boot 03:00.4 rom.bin",
                 "kxctl flash write-boot 03:00.4 rom.bin --yes --backup old.bin"},
            .run = flash::write_boot,
        },
        {
            .noun = "flash",
            .verb = "erase-boot",
            .help = "Erase the boot option ROM",
            .about = "Erases the region \"boot\" and reads it back. Asks first, and saves "
                     "everything that may change.",
            .arguments = {kLocation, kYes, kBackup, kNoBackup, kFlashDryRun},
            .examples =
                {"kxctl flash erase-boot 03:00.4", "kxctl flash erase-boot 03:00.4 --dry-run"},
            .run = flash::erase_boot,
        },
        {
            .noun = "flash",
            .verb = "config-show",
            .help = "Show the boot configuration of an adapter",
            .about = "One line for each field of the configuration record (Q3: of the settings "
                     "block). Fields without a known meaning are named by their offset; fields "
                     "of ports show a number for each port.",
            .arguments = {kLocation},
            .examples =
                {"kxctl flash config-show 03:00.4", "kxctl flash config-show 03:00.4 --json"},
            .run = flash::config_show,
        },
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
                 kFlashDryRun},
            .examples =
                {"kxctl flash config-default 03:00.4",
                 "kxctl flash config-default 03:00.4 --ports 2 --yes"},
            .run = flash::config_default,
        },
        {
            .noun = "flash",
            .verb = "config-erase",
            .help = "Erase the boot configuration",
            .about = "Erases the region \"config\" and reads it back. Asks first, and saves "
                     "everything that may change.",
            .arguments = {kLocation, kYes, kBackup, kNoBackup, kFlashDryRun},
            .examples =
                {"kxctl flash config-erase 03:00.4",
                 "kxctl flash config-erase 05:00.0 --yes --no-backup"},
            .run = flash::config_erase,
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
                 kFlashDryRun},
            .examples =
                {"kxctl flash config-write 03:00.4 config.bin",
                 "kxctl flash config-write 03:00.4 config.bin --dry-run"},
            .run = flash::config_write,
        },
    };
}

}  // namespace kx::ctl
