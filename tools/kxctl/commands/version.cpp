// version: the versions of kxctl and of the library.
#include <fmt/core.h>
#include <kxlinhw/export.h>

#include "commands/commands.hpp"
#include "library/library_version.hpp"
#include "library/record_text.hpp"
#include "output/output.hpp"
#include "output/printable.hpp"

namespace kx::ctl::version {
namespace {

ExitCode show(const Arguments&, Output& output) {
    const LibraryVersion library = query_version();
    if (output.wants_json()) {
        output.json(Json{
            {"kxctl", {{"version", KXCTL_VERSION}}},
            {"library",
             {{"name", field_text(library.name)},
              {"version", library.text()},
              {"version_word", library.word}}},
            {"pci_vendor_id", KESTRIX_PCI_VENDOR_ID}});
        return ExitCode::kDone;
    }
    constexpr const char* kLine = "{:<13}  {}\n";
    output.text(
        fmt::format(kLine, "kxctl", KXCTL_VERSION) +
        fmt::format(kLine, printable(field_text(library.name)), library.text()) +
        fmt::format(kLine, "PCI vendor id", fmt::format("{:04x}", KESTRIX_PCI_VENDOR_ID)));
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "version",
            .verb = "",
            .help = "Show the versions of kxctl and of the library",
            .about = "The version of kxctl, the name and version of the library that it uses, "
                     "and the PCI vendor id of the adapters that the library manages.",
            .arguments = {},
            .examples = {"kxctl version", "kxctl version --json"},
            .run = show,
        },
    };
}

const TablePart kRows(1600, rows);

}  // namespace
}  // namespace kx::ctl::version
