// Makes a number of calls and nothing else. The difference of strace's counts for k + 1 calls and
// for k calls is one warm call; callgrind counts only the last call.
//
//     kx-bench-calls CASE library|floor COUNT
//     kx-bench-calls CASE agree             the library and the floor give the same bytes
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cases.hpp"

namespace {

int usage() {
    std::fprintf(stderr, "usage: kx-bench-calls CASE library|floor COUNT\n");
    std::fprintf(stderr, "       kx-bench-calls CASE agree\n");
    for (const bench::Case& row : bench::cases()) {
        std::fprintf(stderr, "  %s\n", row.name.data());
    }
    return 2;
}

int compare(const bench::Case& row) {
    row.library();
    const std::string library(bench::answer());
    row.floor();
    const std::string_view floor = bench::answer();
    if (library == floor) {
        return 0;
    }
    const auto differ = std::mismatch(library.begin(), library.end(), floor.begin(), floor.end());
    std::fprintf(
        stderr, "%s: the library gives %zu bytes, the floor %zu; they differ at %td\n",
        row.name.data(), library.size(), floor.size(), differ.first - library.begin());
    return 1;
}

}  // namespace

int main(int count, char** arguments) {
    const bench::Case* const row = count < 3 ? nullptr : bench::find_case(arguments[1]);
    if (row == nullptr) {
        return usage();
    }
    const std::string_view side = arguments[2];
    if (side == "agree") {
        return row->floor == nullptr ? 0 : compare(*row);
    }
    const auto call = side == "library" ? row->library : row->floor;
    if (count != 4 || call == nullptr) {
        return usage();
    }
    for (int left = std::atoi(arguments[3]); left > 1; --left) {
        call();
    }
    CALLGRIND_START_INSTRUMENTATION;
    call();
    CALLGRIND_STOP_INSTRUMENTATION;
    return 0;
}
