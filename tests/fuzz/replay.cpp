// Runs a fuzz target once on each file of its corpus, for builds without a fuzzer: earlier findings
// stay fixed. Ends with 1 when there is nothing to run.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> files_of(const std::filesystem::path& place) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_regular_file(place)) {
        files.push_back(place);
    } else if (std::filesystem::is_directory(place)) {
        for (const auto& entry : std::filesystem::directory_iterator(place)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<char> bytes_of(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

// The library prints by contract; its lines are of no interest here.
int main(int argc, char** argv) {
    const int report = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    std::size_t count = 0;
    for (int k = 1; k < argc; ++k) {
        for (const std::filesystem::path& file : files_of(argv[k])) {
            const std::vector<char> bytes = bytes_of(file);
            // In a block of its own size, as the fuzzer gives it.
            const std::vector<uint8_t> input(bytes.begin(), bytes.end());
            static_cast<void>(LLVMFuzzerTestOneInput(input.data(), input.size()));
            ++count;
        }
    }
    static_cast<void>(dprintf(report, "%zu inputs\n", count));
    return count == 0 ? 1 : 0;
}
