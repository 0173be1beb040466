// What is inside a simulated adapter: its serial flash and its serial EEPROM, what they hold, how
// they misbehave, and how often software touched them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kxsim {

// Bytes by the address at which they begin; all else is erased (0xFF).
using Content = std::vector<std::pair<std::uint32_t, std::string>>;

// The serial flash and its controller.
struct Flash {
    unsigned manufacturer = 0x20;
    unsigned type = 0x20;
    std::optional<unsigned> capacity_code = {};  // size is 1 << code; nothing: the chip's own kind
    unsigned busy_polls = 1;     // reads of the controller that find a transfer under way
    unsigned program_polls = 1;  // reads of the flash's status that find a page program under way
    unsigned erase_polls = 2;    // and a sector erase
    Content content = {};

    // A file that holds the flash's bytes and keeps what software writes. One that is not empty is
    // taken as it is; a new one gets the content above. Empty: a file of the session.
    std::string file = {};
};

// Vital product data as the maker writes it: texts are padded with spaces, the rest of the data has
// every keyword that the chip's layout knows.
struct ProductData {
    std::string product = {};      // up to 16 characters
    std::string part_number = {};  // "PN", 16
    std::string serial = {};       // "SL" 24 (Q3: 16), "SN" on Q5, 32
    std::string mac = {};          // "NA", 12 hexadecimal digits
    std::string v0 = {};           // 8 (Q3: 6)
    std::string v5 = {};           // 8 (Q3: "V7", 2)
};

// What became of vital product data since the maker wrote them.
enum class Damage : std::uint8_t {
    kErased,    // all bytes are 0xFF
    kNoEndTag,  // erased bytes follow where the end tag was
    kLengths,   // the read-only part and its first keyword claim to be longer than all data
    kKeywords,  // the read-only part has keywords that nobody knows
    kChecksum,  // the checksum does not fit
};

// The serial EEPROM and the capability through which it is read.
struct Eeprom {
    std::optional<ProductData> product_data = {};  // written where the chip has it
    std::vector<Damage> damage = {};               // to the product data
    Content content = {};                          // over it
    std::string file = {};                         // as that of the flash
    bool capability = true;                        // the adapter has one for vital product data
    unsigned polls = 1;         // reads of its flag that find a request under way
    bool silent = false;        // requests are never answered
    bool loses_writes = false;  // the data register does not keep what is written
};

// What goes wrong in an adapter, each at one position, counted from when it is set; 0 for never.
struct HardwareFaults {
    unsigned stuck_busy_at = 0;     // transfer of the controller that never ends
    unsigned endless_write_at = 0;  // page program or sector erase that never ends
    unsigned flipped_bit_at = 0;    // page program that writes a wrong bit
    unsigned power_cut_at = 0;      // transfer that finds the power gone
};

struct HardwareCounts {
    std::uint64_t loads;  // register accesses
    std::uint64_t stores;
    std::uint32_t transfers;    // of the flash controller
    std::uint32_t programs;     // pages
    std::uint32_t erases;       // sectors
    std::uint64_t dwords_read;  // of the EEPROM
    friend bool operator==(const HardwareCounts&, const HardwareCounts&) = default;
};

class Host;

namespace state {
struct Adapter;
}

// The inside of one adapter of a host. Everything takes effect at once, in all processes.
class Hardware {
public:
    [[nodiscard]] std::string flash(std::size_t address, std::size_t size) const;
    [[nodiscard]] std::size_t flash_size() const;
    void write_flash(std::size_t address, std::string_view bytes);
    [[nodiscard]] std::string eeprom(std::size_t address, std::size_t size) const;
    void write_eeprom(std::size_t address, std::string_view bytes);

    // What the flash answers to an identification; its content stays.
    void identify_as(unsigned manufacturer, unsigned type, unsigned capacity_code);

    // Set all faults anew and count their positions from here.
    void faults(const HardwareFaults& faults);
    [[nodiscard]] bool powered() const;
    void restore_power();  // what the flash and its controller were doing is forgotten

    [[nodiscard]] HardwareCounts counts() const;

    [[nodiscard]] bool locked() const;    // the controller is reserved for this host
    [[nodiscard]] bool selected() const;  // a flash command has not been ended

private:
    friend class Host;
    Hardware(Host& host, std::string location);
    [[nodiscard]] state::Adapter& record() const;
    Host* host_;
    std::string location_;
};

}  // namespace kxsim
