// The Q3 offload driver's device list: the name of a card's first port up to the first NUL, then
// the file. What the fill makes of it is compared with a reading that takes no care of long lines,
// wherever there are none.
#include <kxlinhw/kxlinhw.h>

#include <string>

#include "fuzz/fed_files.hpp"
#include "fuzz/input.hpp"

namespace {

constexpr std::size_t kLongestLine = 1023;
constexpr char kNoOffload[] = "nic_dev";

std::string first_word(const std::string& line) {
    const std::size_t start = std::min(line.find_first_not_of(" \n"), line.size());
    return line.substr(start, line.find_first_of(" \n", start) - start);
}

// Nothing when a line is too long for it.
bool expected(std::string file, const std::string& port, std::string& text) {
    for (bool heading = true; !file.empty(); heading = false) {
        const std::size_t end = file.find('\n');
        const std::string line = file.substr(0, end == file.npos ? end : end + 1);
        if (line.size() > kLongestLine) {
            return false;
        }
        file.erase(0, line.size());
        const std::string seen = line.substr(0, line.find('\0'));
        if (!heading && seen.find(port) != seen.npos) {
            text = first_word(seen).substr(0, sizeof CardInfo::offload_device - 1);
            return true;
        }
    }
    text = kNoOffload;
    return true;
}

}  // namespace

extern "C" uint32_t isZfab3Loaded(void) { return 1; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string name = input.text().substr(0, sizeof PortInfo::interface_name - 1);
    const auto file = input.rest();
    fuzz::FedFiles::feed("/proc/net/zfab3/devices", file);
    PortInfo port{};
    std::copy(name.begin(), name.end(), port.interface_name);
    CardInfo card{};
    std::memcpy(card.chip_type, "Q3", 3);
    card.pci_class = 0x020000;
    card.ports = &port;
    CardList cards{};
    cards.cards = &card;
    CardList* list = &cards;
    fuzz::require(FillInfo_Kxcard(&list, 0) == KX_SUCCESS, "a card of a loaded driver is filled");
    fuzz::require(
        memchr(card.offload_device, 0, sizeof card.offload_device) != nullptr, "the word ends");
    fuzz::require(card.pci_class == 0x020000, "the word stays in its field");
    std::string text;
    if (expected({file.begin(), file.end()}, name, text)) {
        fuzz::require(text == card.offload_device, "the word is that of the port's line");
    }
    return 0;
}
