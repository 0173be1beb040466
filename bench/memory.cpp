// What calls cost in memory.
//
//     kx-bench-memory peak CASE          growth of resident memory within the first call, KiB
//     kx-bench-memory growth CASE COUNT  growth over COUNT calls after a hundred, KiB
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cases.hpp"

namespace {

// A row of /proc/self/status, in KiB.
long status(const char* key) {
    std::FILE* const file = std::fopen("/proc/self/status", "re");
    char line[256];
    long value = 0;
    while (file != nullptr && std::fgets(line, sizeof line, file) != nullptr) {
        if (std::strncmp(line, key, std::strlen(key)) == 0) {
            value = std::atol(line + std::strlen(key) + 1);
        }
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return value;
}

// From now on the peak is that of the following calls.
void forget_peak() {
    std::FILE* const file = std::fopen("/proc/self/clear_refs", "we");
    if (file != nullptr) {
        std::fputs("5", file);
        std::fclose(file);
    }
}

long peak_of(void (*call)()) {
    forget_peak();
    const long before = status("VmRSS");
    call();
    return status("VmHWM") - before;
}

long growth_of(void (*call)(), int count) {
    for (int i = 0; i < 100; ++i) {
        call();
    }
    const long before = status("VmRSS");
    for (int i = 0; i < count; ++i) {
        call();
    }
    return status("VmRSS") - before;
}

}  // namespace

int main(int count, char** arguments) {
    const bench::Case* const row = count < 3 ? nullptr : bench::find_case(arguments[2]);
    if (row == nullptr) {
        std::fprintf(stderr, "usage: kx-bench-memory peak CASE | growth CASE COUNT\n");
        return 2;
    }
    const bool peak = std::string_view(arguments[1]) == "peak";
    const int calls = count > 3 ? std::atoi(arguments[3]) : 10000;
    std::printf("%ld\n", peak ? peak_of(row->library) : growth_of(row->library, calls));
    return 0;
}
