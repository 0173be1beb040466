// module: the driver modules of the adapters.
#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "library/module_files.hpp"
#include "library/no_adapter.hpp"
#include "library/record_text.hpp"

namespace kx::ctl::module {
namespace {

constexpr std::uint8_t kNotLoaded = 0;
constexpr std::uint8_t kLoaded = 1;

Cell loaded_cell(std::uint8_t state) {
    switch (state) {
        case kLoaded:
            return Cell("yes", Style::kGood);
        case kNotLoaded:
            return Cell("no");
        default:
            return Cell("?");
    }
}

// Another state: the list of loaded modules could not be read.
Json loaded_json(std::uint8_t state) {
    return state == kLoaded || state == kNotLoaded ? Json(state == kLoaded) : Json();
}

Json to_json(const InstalledModule& module) {
    const DriverEntry& entry = module.entry;
    return {
        {"module", field_text(entry.module)},
        {"loaded", loaded_json(entry.loaded)},
        {"version", text_or_null(field_text(entry.version))},
        {"description", text_or_null(field_text(entry.description))},
        {"compressed", text_or_null(module.compressed)},
        {"listed_by_library", module.listed_by_library},
    };
}

// What the library, and so every other agent, cannot do with a compressed module.
std::string note(const InstalledModule& module) {
    if (module.compressed.empty()) {
        return "";
    }
    return module.compressed + (module.listed_by_library ? ": the library cannot read its texts"
                                                         : ": the library does not list it");
}

std::vector<Column> list_columns() {
    return {
        {"MODULE"},
        {"LOADED"},
        {"VERSION"},
        {"DESCRIPTION"},
        {"NOTE", Align::kLeft, WhenEmpty::kLeftOut}};
}

ExitCode list(const Arguments& arguments, Output& output) {
    List modules(arguments, output, list_columns());
    for (const InstalledModule& module : none_without_adapter(query_installed_modules)) {
        const DriverEntry& entry = module.entry;
        modules.add(
            {field_text(entry.module), loaded_cell(entry.loaded), field_text(entry.version),
             field_text(entry.description), note(module)},
            to_json(module));
    }
    if (output.wants_json()) {
        output.json(Json{{"modules", modules.json()}});
    } else {
        modules.print(output, "No driver module is installed");
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "module",
            .verb = "list",
            .help = "Show the installed driver modules",
            .about =
                "One line for each kernel module that belongs to the adapters and has a "
                "module file: whether it is loaded (\"?\" when that is unknown), its "
                "version and its description. Files may be compressed (.ko.xz, .ko.zst, .ko.gz); "
                "the note says what agents that have only the library do not see. Needs no "
                "adapter and no loaded driver.",
            .arguments = {},
            .examples = {"kxctl module list", "kxctl --sim=lab module list"},
            .run = list,
            .columns = list_columns,
        },
    };
}

const TablePart kRows(500, rows);

}  // namespace
}  // namespace kx::ctl::module
