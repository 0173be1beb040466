// The hardware state of adapters: created in the session with the adapter, then read and changed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kxsim/host.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "host/fail_with_errno.hpp"
#include "host/hardware.hpp"
#include "host/host_state.hpp"
#include "host/pci_function.hpp"
#include "host/product_data.hpp"
#include "host/quiet.hpp"
#include "models/register_window.hpp"
#include "models/serial_flash.hpp"

namespace kxsim {
namespace {

constexpr unsigned kLargestFlash = 26;  // capacity code that a content file is made for
constexpr std::size_t kEepromSize = 32768;

// A file of the session with the content of a flash or an EEPROM.
class ContentFile {
public:
    ContentFile(const std::string& root, const char* kind, const std::string& location)
        : path_(root + kind + location),
          descriptor_(::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
        if (descriptor_ < 0) {
            fail_with_errno(path_);
        }
    }
    ~ContentFile() { ::close(descriptor_); }
    ContentFile(const ContentFile&) = delete;
    ContentFile& operator=(const ContentFile&) = delete;

    [[nodiscard]] bool empty() const { return held() == 0; }

    // The written bytes of a content of `size` bytes; all other bytes are erased.
    void write(std::size_t address, std::string_view bytes, std::size_t size) const {
        if (address > size || bytes.size() > size - address) {
            throw std::invalid_argument("bytes past the end of " + path_);
        }
        for (std::size_t end = held(); end < address;) {
            const std::string_view erased(kErasedBlock.data(), kErasedBlock.size());
            const std::string_view part = erased.substr(0, address - end);
            put(end, part);
            end += part.size();
        }
        put(address, bytes);
    }

    [[nodiscard]] std::string read(std::size_t address, std::size_t size) const {
        std::string bytes(size, kErased);
        [[maybe_unused]] const ssize_t present =
            ::pread(descriptor_, bytes.data(), size, static_cast<off_t>(address));
        return bytes;
    }

private:
    static constexpr char kErased = '\xFF';
    static constexpr auto kErasedBlock = [] {
        std::array<char, 65536> block{};
        block.fill(kErased);
        return block;
    }();

    void put(std::size_t address, std::string_view bytes) const {
        if (::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(address)) !=
            static_cast<ssize_t>(bytes.size())) {
            fail_with_errno(path_);
        }
    }

    // Bytes that the file has so far.
    [[nodiscard]] std::size_t held() const {
        struct stat status {};
        ::fstat(descriptor_, &status);
        return static_cast<std::size_t>(status.st_size);
    }

    std::string path_;
    int descriptor_;
};

std::uint8_t byte(unsigned value, const char* what) {
    if (value > 0xFF) {
        throw std::invalid_argument(std::string(what) + " is larger than a byte");
    }
    return static_cast<std::uint8_t>(value);
}

constexpr std::size_t content_size(unsigned capacity_code) {
    return std::size_t{1} << std::min(capacity_code, kLargestFlash);
}

void set_up_flash(
    state::AdapterHardware& hardware, const Flash& flash, const ContentFile& file,
    unsigned capacity_code) {
    models::fit_flash(
        hardware.flash, byte(flash.manufacturer, "the flash's manufacturer"),
        byte(flash.type, "the flash's type"), byte(capacity_code, "the flash's capacity code"));
    hardware.flash.program_polls = flash.program_polls;
    hardware.flash.erase_polls = flash.erase_polls;
    hardware.controller.busy_polls = flash.busy_polls;
    if (!file.empty()) {
        return;
    }
    for (const auto& [address, bytes] : flash.content) {
        file.write(address, bytes, content_size(capacity_code));
    }
}

void set_up_eeprom(
    state::AdapterHardware& hardware, const Eeprom& eeprom, const ContentFile& file,
    std::string_view chip) {
    hardware.vpd.offset = eeprom.capability ? kVpdCapability : 0;
    hardware.vpd.polls = eeprom.polls;
    hardware.vpd.silent = eeprom.silent ? 1 : 0;
    hardware.vpd.loses_writes = eeprom.loses_writes ? 1 : 0;
    if (!file.empty()) {
        return;
    }
    if (eeprom.product_data) {
        const auto [address, bytes] = product_data_image(chip, *eeprom.product_data, eeprom.damage);
        file.write(address, bytes, kEepromSize);
    }
    for (const auto& [address, bytes] : eeprom.content) {
        file.write(address, bytes, kEepromSize);
    }
}

// The file with the content of a new adapter: an empty file of the session, or a link in the
// session to a file of the user.
void place_content(const std::string& place, const std::string& file) {
    std::filesystem::remove(place);
    if (!file.empty()) {
        std::filesystem::create_symlink(std::filesystem::absolute(file), place);
    }
}

}  // namespace

void make_hardware(
    state::Adapters& adapters, const std::string& root, const PciDevice& function,
    const Adapter& adapter) {
    if (adapters.count == state::kMostAdapters) {
        throw std::invalid_argument("the host is full of adapters");
    }
    const bool is_q3 = adapter.chip == "Q3";
    state::Adapter& record = adapters.adapters[adapters.count];
    record = {};
    copy_field(record.location, function.location, "location");
    record.window = function.bar0;
    record.window_size = function.bar0_size;
    record.hardware.family = is_q3 ? state::Family::kQ3 : state::Family::kQ4;
    const Quiet quiet;
    place_content(root + state::kFlashFile + function.location, adapter.flash.file);
    place_content(root + state::kEepromFile + function.location, adapter.eeprom.file);
    const ContentFile flash(root, state::kFlashFile, function.location);
    const unsigned capacity_code = adapter.flash.capacity_code.value_or(is_q3 ? 19 : 22);
    set_up_flash(record.hardware, adapter.flash, flash, capacity_code);
    record.flash_size = static_cast<std::uint32_t>(content_size(capacity_code));
    const ContentFile eeprom(root, state::kEepromFile, function.location);
    set_up_eeprom(record.hardware, adapter.eeprom, eeprom, adapter.chip);
    record.eeprom_size = kEepromSize;
    ++adapters.count;
}

// --- Hardware ---

state::Adapter& Hardware::record() const {
    state::Adapters& adapters = *host_->state_->adapters;
    for (state::Adapter& adapter : std::span(adapters.adapters, adapters.count)) {
        if (location_ == adapter.location) {
            return adapter;
        }
    }
    throw std::invalid_argument("there is no adapter at " + location_);
}

Hardware::Hardware(Host& host, std::string location)
    : host_(&host), location_(std::move(location)) {
    static_cast<void>(record());
}

Hardware Host::hardware(const std::string& location) {
    return {*this, Location::parse(location).full()};
}

std::size_t Hardware::flash_size() const { return record().flash_size; }

std::string Hardware::flash(std::size_t address, std::size_t size) const {
    const Quiet quiet;
    return ContentFile(host_->root(), state::kFlashFile, location_).read(address, size);
}

void Hardware::write_flash(std::size_t address, std::string_view bytes) {
    const Quiet quiet;
    ContentFile(host_->root(), state::kFlashFile, location_).write(address, bytes, flash_size());
}

std::string Hardware::eeprom(std::size_t address, std::size_t size) const {
    const Quiet quiet;
    return ContentFile(host_->root(), state::kEepromFile, location_).read(address, size);
}

void Hardware::write_eeprom(std::size_t address, std::string_view bytes) {
    const Quiet quiet;
    ContentFile(host_->root(), state::kEepromFile, location_).write(address, bytes, kEepromSize);
}

void Hardware::identify_as(unsigned manufacturer, unsigned type, unsigned capacity_code) {
    state::SerialFlash& flash = record().hardware.flash;
    flash.manufacturer = byte(manufacturer, "the flash's manufacturer");
    flash.type = byte(type, "the flash's type");
    flash.capacity_code = byte(capacity_code, "the flash's capacity code");
}

void Hardware::faults(const HardwareFaults& faults) {
    state::AdapterHardware& hardware = record().hardware;
    const state::FlashController& controller = hardware.controller;
    const state::SerialFlash& flash = hardware.flash;
    const auto from = [](unsigned position, std::uint32_t so_far) {
        return position == 0 ? 0 : position + so_far;
    };
    hardware.faults = {
        .stuck_busy_at = from(faults.stuck_busy_at, controller.transfers),
        .endless_write_at = from(faults.endless_write_at, flash.programs + flash.erases),
        .flipped_bit_at = from(faults.flipped_bit_at, flash.programs),
        .power_cut_at = from(faults.power_cut_at, controller.transfers),
        .misread_at = from(faults.misread_at, flash.reads),
        .stuck_sector = faults.stuck_sector,
    };
}

bool Hardware::powered() const { return record().hardware.unpowered == 0; }

void Hardware::restore_power() { models::restore_power(record().hardware); }

HardwareCounts Hardware::counts() const {
    const state::AdapterHardware& hardware = record().hardware;
    return {
        .loads = hardware.loads,
        .stores = hardware.stores,
        .transfers = hardware.controller.transfers,
        .programs = hardware.flash.programs,
        .erases = hardware.flash.erases,
        .dwords_read = hardware.dwords_read,
        .reads = hardware.flash.reads,
        .last_change = hardware.controller.last_change,
    };
}

bool Hardware::locked() const { return record().hardware.controller.latches.locked != 0; }

bool Hardware::selected() const { return record().hardware.controller.latches.selected != 0; }

}  // namespace kxsim
