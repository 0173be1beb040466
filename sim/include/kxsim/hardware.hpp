// The hardware of a simulated adapter: its serial flash and its serial EEPROM, their content, their
// faults, and counters of accesses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kxsim {

// Bytes by their start address; all other bytes are erased (0xFF).
using Content = std::vector<std::pair<std::uint32_t, std::string>>;

// The serial flash and its controller.
struct Flash {
    unsigned manufacturer = 0x20;
    unsigned type = 0x20;
    std::optional<unsigned> capacity_code =
        {};                   // size is 1 << code; nothing: the default of the chip
    unsigned busy_polls = 1;  // reads of the controller that still find a transfer in progress
    unsigned program_polls =
        1;  // reads of the flash's status that still find a page program in progress
    unsigned erase_polls = 2;  // and a sector erase
    Content content = {};

    // A file that contains the flash's bytes and keeps what software writes. A file that is not
    // empty is used unchanged; a new file gets the content above. Empty: a file of the session.
    std::string file = {};
};

// Vital product data as the maker writes them: texts are padded with spaces; the rest of the data
// has every keyword of the chip's layout.
struct ProductData {
    std::string product = {};      // up to 16 characters
    std::string part_number = {};  // "PN", 16
    std::string serial = {};       // "SL" 24 (Q3: 16), "SN" on Q5, 32
    std::string mac = {};          // "NA", 12 hexadecimal digits
    std::string v0 = {};           // 8 (Q3: 6)
    std::string v5 = {};           // 8 (Q3: "V7", 2)
};

// Damage to vital product data.
enum class Damage : std::uint8_t {
    kErased,    // all bytes are 0xFF
    kNoEndTag,  // the end tag is erased
    kLengths,   // the lengths of the read-only part and of its first keyword exceed the data
    kKeywords,  // the read-only part has unknown keywords
    kChecksum,  // the checksum is wrong
};

// The serial EEPROM and the capability through which it is read.
struct Eeprom {
    std::optional<ProductData> product_data = {};  // written where the chip has it
    std::vector<Damage> damage = {};               // to the product data
    Content content = {};                          // over it
    std::string file = {};                         // as that of the flash
    bool capability = true;                        // the adapter has one for vital product data
    unsigned polls = 1;         // reads of its flag that still find a request in progress
    bool silent = false;        // requests are never answered
    bool loses_writes = false;  // the data register loses what is written
};

// Faults of an adapter, each at one position; positions count from the moment when the faults are
// set; 0: never.
struct HardwareFaults {
    unsigned stuck_busy_at = 0;     // transfer of the controller that never ends
    unsigned endless_write_at = 0;  // page program or sector erase that never ends
    unsigned flipped_bit_at = 0;    // page program that writes a wrong bit
    unsigned power_cut_at = 0;      // transfer at which the power fails
    unsigned misread_at = 0;        // read command whose first byte arrives with a wrong bit
    unsigned stuck_sector = 0;      // sector, counted from 1, that no erase changes
};

struct HardwareCounts {
    std::uint64_t loads;  // register accesses
    std::uint64_t stores;
    std::uint32_t transfers;    // of the flash controller
    std::uint32_t programs;     // pages
    std::uint32_t erases;       // sectors
    std::uint64_t dwords_read;  // of the EEPROM
    std::uint32_t reads;        // read commands of the flash
    std::uint32_t last_change;  // the transfer that carried out the last program or erase
    friend bool operator==(const HardwareCounts&, const HardwareCounts&) = default;
};

class Host;

namespace state {
struct Adapter;
}

// The hardware of one adapter of a host. Every change takes effect at once, in all processes.
class Hardware {
public:
    [[nodiscard]] std::string flash(std::size_t address, std::size_t size) const;
    [[nodiscard]] std::size_t flash_size() const;
    void write_flash(std::size_t address, std::string_view bytes);
    [[nodiscard]] std::string eeprom(std::size_t address, std::size_t size) const;
    void write_eeprom(std::size_t address, std::string_view bytes);

    // The answer of the flash to an identification; its content does not change.
    void identify_as(unsigned manufacturer, unsigned type, unsigned capacity_code);

    // Replace all faults, and count their positions from now.
    void faults(const HardwareFaults& faults);
    [[nodiscard]] bool powered() const;
    void restore_power();  // the state of the flash and its controller is reset

    [[nodiscard]] HardwareCounts counts() const;

    [[nodiscard]] bool locked() const;    // the controller is reserved for this host
    [[nodiscard]] bool selected() const;  // a flash command is not complete

private:
    friend class Host;
    Hardware(Host& host, std::string location);
    [[nodiscard]] state::Adapter& record() const;
    Host* host_;
    std::string location_;
};

}  // namespace kxsim
