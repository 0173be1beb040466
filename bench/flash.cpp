// Register accesses and CPU time of the flash operations, on the simulated host's controllers.
#include <benchmark/benchmark.h>
#include <kxlinhw/kxlinhw.h>

#include <cstdint>
#include <cstdio>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kAddress = 0x100000;
constexpr uint32_t kPage = 256;
constexpr uint32_t kMebibyte = 1 << 20;

// A flash that is always ready, so that the count is the least that software must do.
const kxsim::Flash kPrompt{.busy_polls = 0, .program_polls = 0, .erase_polls = 0};

// A host with a Q4 and a Q3 adapter; the process runs on it.
struct Adapters {
    Adapters() {
        host.adapter({.chip = "Q4", .location = "03:00.4", .flash = kPrompt});
        host.adapter({.chip = "Q3", .location = "04:00.0", .flash = kPrompt});
    }
    kxsim::Host host;
};

uint64_t accesses(Adapters& adapters, const char* location) {
    const kxsim::HardwareCounts counts = adapters.host.hardware(location).counts();
    return counts.loads + counts.stores;
}

// Count the register accesses of one operation, then time it.
template <class Operation>
void measure(benchmark::State& state, const char* location, uint8_t adapter, Operation operation) {
    Adapters adapters;
    const auto attached = adapters.host.attach();
    g_adapter_count = scan_hbas();
    const bool q4 = adapter == 0;
    if (g_adapter_count != 2 || (q4 ? connect_to_hba_Q4(adapter) : connect_to_hba(adapter)) != 0) {
        state.SkipWithError("no adapter");
        return;
    }
    const uint64_t before = accesses(adapters, location);
    if (operation(adapter) < 0) {
        state.SkipWithError("the operation failed");
    }
    const uint64_t after = accesses(adapters, location);
    for (auto _ : state) {
        benchmark::DoNotOptimize(operation(adapter));
    }
    state.SetLabel(std::to_string(after - before));  // a counter would be rounded
    disconnect_from_hba(adapter);
}

std::vector<uint8_t>& data() {
    static std::vector<uint8_t> bytes(kMebibyte, 0x5A);
    return bytes;
}

std::vector<uint32_t>& words() {
    static std::vector<uint32_t> room(kMebibyte / 4);
    return room;
}

template <class Operation>
void add(const char* name, bool q4, Operation operation) {
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
        measure(state, q4 ? "03:00.4" : "04:00.0", q4 ? 0 : 1, operation);
    })->Unit(benchmark::kMillisecond);
}

// The write itself reads each page back and compares it.
int32_t write_mebibyte(uint8_t adapter) {
    for (uint32_t at = 0; at < kMebibyte; at += kPage) {
        const int32_t status = q4_write_flash(adapter, kAddress + at, kPage, data().data() + at, 1);
        if (status != 0) {
            return status;
        }
    }
    return 0;
}

void add_all() {
    add("q4 identification", true, [](uint8_t a) { return get_flash_params(a); });
    add("q4 read of 64 words", true,
        [](uint8_t a) { return q4_read_flash(a, kAddress, 64, words().data(), 0); });
    add("q4 read of 1024 words", true,
        [](uint8_t a) { return q4_read_flash(a, kAddress, 1024, words().data(), 0); });
    add("q4 page with verification", true,
        [](uint8_t a) { return q4_write_flash(a, kAddress, kPage, data().data(), 0); });
    add("q4 erase of 1 sector", true, [](uint8_t a) { return q4_flash_erase_sectors(a, 20, 20); });
    add("q4 erase of 16 sectors", true,
        [](uint8_t a) { return q4_flash_erase_sectors(a, 16, 31); });
    add("q4 configuration record written", true, [](uint8_t a) {
        std::vector<uint8_t> record(1024);
        Set_q4config_property_with_Default_Settings(record.data());
        return write_flash_for_config(a, record.data());
    });
    add("q4 one MiB written and verified", true, write_mebibyte);
    add("q3 read of 64 words", false,
        [](uint8_t a) { return q3_read_flash(a, 0x10000, 64, words().data()); });
    add("q3 page", false,
        [](uint8_t a) { return q3_write_flash(a, 0x10000, kPage, data().data()); });
}

}  // namespace

int main(int count, char** arguments) {
    add_all();
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
