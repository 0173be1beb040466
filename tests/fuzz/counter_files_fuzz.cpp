// Counter files of the offload drivers: the whole input is the file, for both generations.
#include <kxlinhw/kxlinhw.h>

#include "fuzz/fed_files.hpp"
#include "fuzz/input.hpp"
#include "support/scratch_directory.hpp"

namespace {

constexpr char kLocation[] = "03:00.4";

// A directory with an entry for the card.
void list_devices() {
    static const test::ScratchDirectory directory;
    if (fuzz::FedFiles::directory_.empty()) {
        directory.write(std::string("0000:") + kLocation, "");
        fuzz::FedFiles::listed_as_ = "/proc/driver/zfab4/";
        fuzz::FedFiles::directory_ = directory.path();
    }
}

std::size_t free_chain(KxStatEntryPtr first) {
    std::size_t length = 0;
    for (; first != nullptr; ++length) {
        StatEntry* const next = first->next;
        fuzz::require(memchr(first->name, 0, sizeof first->name) != nullptr, "names end");
        std::free(first);
        first = next;
    }
    return length;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    list_devices();
    fuzz::FedFiles::feed("/proc/net/zfab3/ofld/snmp", {data, size});
    fuzz::FedFiles::feed(
        std::string("/proc/driver/zfab4/0000:") + kLocation + "/tcp_stats", {data, size});
    KxStatEntryPtr chain = nullptr;
    fuzz::require(getCardStats(&chain, "ofld") == KX_SUCCESS, "the file can be read");
    fuzz::require(free_chain(chain) <= 25, "25 lines count");
    CardInfo card{};
    std::memcpy(card.pci_bus_location, kLocation, sizeof kLocation);
    fuzz::require(getQ4CardStats(&card) == KX_SUCCESS, "the file can be read");
    fuzz::require(free_chain(card.stats) <= 24, "24 lines count");
    return 0;
}
