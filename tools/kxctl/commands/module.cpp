// module: the driver modules of the adapters.
#include "commands/nouns.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

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

Json to_json(const DriverEntry& entry) {
    return {
        {"module", field_text(entry.module)},
        {"loaded", entry.loaded},
        {"version", text_or_null(field_text(entry.version))},
        {"description", text_or_null(field_text(entry.description))},
    };
}

}  // namespace

ExitCode list(const Arguments&, Output& output) {
    const std::vector<DriverEntry> entries = query_modules();
    if (output.wants_json()) {
        output.json(Json{{"modules", json_array(entries, to_json)}});
        return ExitCode::kDone;
    }
    Table table({{"MODULE"}, {"LOADED"}, {"VERSION"}, {"DESCRIPTION"}});
    for (const DriverEntry& entry : entries) {
        table.add_row(
            {field_text(entry.module), loaded_cell(entry.loaded), field_text(entry.version),
             field_text(entry.description)});
    }
    output.table(table);
    return ExitCode::kDone;
}

}  // namespace kx::ctl::module
