// CPU time of library and floor. One process calls them alternately, so that other load on the
// machine affects both.
//
//     kx-bench-pairs CASE... [Google Benchmark's options]
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "cases.hpp"

namespace {

// Of this process, in the kernel and outside of it; microseconds.
double cpu_time() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double took(void (*call)()) {
    const double start = cpu_time();
    call();
    return cpu_time() - start;
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void measure(benchmark::State& state, const bench::Case& row) {
    std::vector<double> library;
    std::vector<double> floor;
    bool library_first = false;
    for (auto _ : state) {
        library_first = !library_first;
        if (library_first) {
            library.push_back(took(row.library));
        }
        floor.push_back(took(row.floor));
        if (!library_first) {
            library.push_back(took(row.library));
        }
    }
    state.counters["floor_us"] = median(floor);
    state.counters["library_us"] = median(library);
    state.counters["ratio"] = median(library) / median(floor);
}

}  // namespace

int main(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        const bench::Case* const row = bench::find_case(arguments[i]);
        if (row != nullptr && row->floor != nullptr) {
            benchmark::RegisterBenchmark(arguments[i], measure, *row)
                ->Unit(benchmark::kMicrosecond);
        }
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
