// The paths of the host stand in one file for each folder, and the simulated host answers for each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "process/owned_paths.hpp"

namespace {

namespace fs = std::filesystem;

// The texts of a source that are paths of the host.
std::vector<std::string> paths_in(const fs::path& source) {
    static const std::regex path_text(R"re("(/(?:dev|etc|lib|proc|sys|var)\b[^"]*)")re");
    std::ifstream file(source);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::string> paths;
    for (std::sregex_iterator found(text.begin(), text.end(), path_text), end; found != end;
         ++found) {
        paths.push_back((*found)[1]);
    }
    return paths;
}

// The files that may hold paths: one for each folder, and the header that agents include.
bool holds_paths(const fs::path& source) {
    return source.filename() == "paths.hpp" || source.filename() == "settings.h";
}

template <class Look>
void for_each_source(Look look) {
    std::size_t sources = 0;
    for (const char* folder : {"src", "include"}) {
        for (const auto& entry : fs::recursive_directory_iterator(fs::path(KX_SOURCE) / folder)) {
            if (entry.is_regular_file()) {
                ++sources;
                look(entry.path());
            }
        }
    }
    EXPECT_GT(sources, 100U);
}

TEST(Paths, StandInOneFileForEachFolder) {
    for_each_source([](const fs::path& source) {
        const std::string ending = source.extension();
        if (!holds_paths(source) && (ending == ".cpp" || ending == ".hpp")) {
            EXPECT_THAT(paths_in(source), testing::IsEmpty()) << source;
        }
    });
}

TEST(Paths, AreTheSimulatedHosts) {
    std::size_t count = 0;
    for_each_source([&count](const fs::path& source) {
        if (!holds_paths(source)) {
            return;
        }
        for (const std::string& path : paths_in(source)) {
            ++count;
            // The null device is the same everywhere; what begins like an owned path is its parent.
            const bool is_parent = std::ranges::any_of(
                kxsim::process::kOwnedPaths,
                [&path](std::string_view owned) { return owned.starts_with(path); });
            EXPECT_TRUE(path == "/dev/null" || is_parent || kxsim::process::is_owned(path)) << path;
        }
    });
    EXPECT_GE(count, 15U);
}

}  // namespace
