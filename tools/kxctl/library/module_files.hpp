// The driver modules of the host, with those whose files are compressed. The library reads
// uncompressed files only: it lists no .ko.xz and no .ko.zst, and knows a .ko.gz only by its name.
// The texts of the first two come from libkmod; without it they are empty.
#pragma once

#include <kxlinhw/records.h>

#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

struct InstalledModule {
    DriverEntry entry;
    std::string compressed = {};  // the ending of a compressed file: ".ko.xz"; empty: it is not
    bool listed_by_library = true;
};

// Throws Failure as query_modules does, when there is no compressed file either.
[[nodiscard]] std::vector<InstalledModule> query_installed_modules();

// The module whose compressed file has that name, and the ending; empty texts for other files.
struct CompressedName {
    std::string_view module;
    std::string_view ending;
};
[[nodiscard]] CompressedName compressed_name(std::string_view file);

}  // namespace kx::ctl
