// The two rewriters of configuration files. First a byte that chooses the rewriter, then the key,
// then the file. The result is compared with a rewrite that takes no care of long lines, wherever
// there are none.
#include <kxlinhw/kxlinhw.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <iterator>

#include "fuzz/input.hpp"
#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"

namespace {

constexpr std::size_t kLongestLine = 255;
constexpr char kNewLine[] = "eth2.mtu = 1500\n";

bool is_own(bool sysctl, const std::string& line, const std::string& key) {
    const std::string text = line.substr(0, line.find('\0'));
    if (!sysctl) {
        return text.find(key) != text.npos;
    }
    return text.starts_with(key) && text.size() > key.size() &&
           (text[key.size()] == ' ' || text[key.size()] == '=');
}

// Nothing when a line is too long for it.
bool expected(bool sysctl, std::string_view file, const std::string& key, std::string& result) {
    while (!file.empty()) {
        const std::size_t end = file.find('\n');
        std::string line(file.substr(0, end == file.npos ? end : end + 1));
        if (line.size() > kLongestLine) {
            return false;
        }
        file.remove_prefix(line.size());
        line.erase(0, std::min(line.find_first_not_of(" \t"), line.size()));
        result += is_own(sysctl, line, key) ? kNewLine : line;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const bool sysctl = (input.byte() & 1) != 0;
    const std::string key = input.text();
    const auto bytes = input.rest();
    static const test::ScratchDirectory directory;
    const std::string path = directory / "file.conf";
    if (std::FILE* file = std::fopen(path.c_str(), "w")) {
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::fclose(file);
    }
    fuzz::Text search_key(key);
    const int status =
        sysctl ? replaceSysctlLine(
                     path.c_str(), search_key.c_str(), kNewLine, static_cast<int>(key.size()))
               : replacePortConfLine(path.c_str(), kNewLine, search_key.c_str());
    fuzz::require(status == 0, "a file that can be written is rewritten");
    std::string wanted;
    if (expected(
            sysctl, {reinterpret_cast<const char*>(bytes.data()), bytes.size()}, key, wanted)) {
        fuzz::require(test::file_text(path) == wanted, "own lines are replaced, the others stay");
    }
    fuzz::require(access((path + ".tmp").c_str(), F_OK) != 0, "no new text is left behind");
    fuzz::require(access((path + ".bk").c_str(), F_OK) != 0, "no backup is left behind");
    return 0;
}
