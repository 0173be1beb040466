#include "flash/card.hpp"

#include <fmt/core.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/q3_boot.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

extern "C" {
#include <pci/pci.h>
}

#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "failure/unread.hpp"
#include "library/adapter_fields.hpp"
#include "library/call.hpp"
#include "library/record_text.hpp"
#include "output/printable.hpp"
#include "output/progress.hpp"

namespace kx::ctl {
namespace {

using Words = std::vector<std::string>;

constexpr std::uint32_t kReadAtOnce = 4096;  // bytes; progress is shown after each step
constexpr std::uint16_t kQ3Ids = 1000;       // Q3 ids are between 0 and this
constexpr std::uint32_t kReach = 1U << 24;   // of the three address bytes of a flash command

std::string bus_location_of(const pci_dev& device) {
    return fmt::format(
        "{:02x}:{:02x}.{:x}", unsigned{device.bus}, unsigned{device.dev}, unsigned{device.func});
}

std::string full_bus_location_of(const pci_dev& device) {
    return fmt::format("{:04x}:{}", static_cast<unsigned>(device.domain), bus_location_of(device));
}

struct Product {
    std::string name;
    std::string serial;
};

// No driver has to answer for these.
std::vector<HostInterface> interfaces_of(const std::string& full_location) {
    std::vector<HostInterface> interfaces;
    const auto location = PciLocation::parse(full_location);
    for (const std::string& name : location ? interfaces_at(*location) : Words()) {
        if (auto interface = host_interface(name)) {
            interfaces.push_back(*std::move(interface));
        }
    }
    return interfaces;
}

Json interface_json(const HostInterface& interface) {
    return {{"interface", interface.name}, {"mac", text_or_null(interface.mac)}};
}

// An adapter whose product data cannot be read is known by its location only.
Product product_of(std::uint8_t index) {
    const int revision = get_chip_revision(index);
    AdapterInfoRecord record{};
    record.adapter = index;
    record.device_id = kestrix_hbas[index]->device_id;
    record.chip_class = static_cast<std::uint8_t>(revision - 3);
    call_library([&] {
        std::uint32_t cap = 0;
        if (vpd_setup(index, &cap) != 0) {
            return;
        }
        const auto read = revision == 3   ? q3_get_adapterinfo
                          : revision == 4 ? q4_get_adapterinfo
                                          : q5_get_adapterinfo;
        static_cast<void>(read(index, cap, &record));
    });
    if (is_unread(full_bus_location_of(*kestrix_hbas[index]) + "/config")) {
        return {};
    }
    return {product_text(record.product_name), product_text(record.serial_number)};
}

struct FlashStatusRow {
    std::int32_t status;
    ExitCode code;
    const char* text;
};

constexpr FlashStatusRow kFlashStatuses[] = {
    {KX_FLASH_MISMATCH, ExitCode::kVerification, "what was written does not read back"},
    {KX_FLASH_TIMED_OUT, ExitCode::kFailed, "the flash did not end its work in time"},
    {KX_FLASH_BUSY, ExitCode::kBusy, "the flash controller is busy"},
    {KX_FLASH_INVALID, ExitCode::kFailed, "the library refused it or could not do it"},
    {KX_FLASH_BAD_SIZE, ExitCode::kUsage, "the image has a wrong size or place"},
    {KX_Q3_FLASH_READ, ExitCode::kFailed, "the flash could not be read"},
    {KX_Q3_FLASH_TIMED_OUT, ExitCode::kFailed, "the flash did not take it in time"},
    {KX_Q3_BAD_IMAGE, ExitCode::kUsage, "the image has a wrong size or no signature"},
};

}  // namespace

void check_flash(std::int32_t status, const std::string& what) {
    if (status == 0) {
        return;
    }
    const auto* const row = std::ranges::find(kFlashStatuses, status, &FlashStatusRow::status);
    if (row == std::end(kFlashStatuses)) {
        throw Failure(ExitCode::kFailed, fmt::format("{}: status {}", what, status));
    }
    throw Failure(row->code, fmt::format("{}: {}", what, row->text));
}

FlashCard::FlashCard(std::string location, const std::string& writer)
    : location_(std::move(location)) {
    try {
        find();
        lock_.emplace(location_, full_location(), writer);
        interfaces_ = interfaces_of(full_location());
        Product product = product_of(index_);
        product_ = std::move(product.name);
        serial_ = std::move(product.serial);
        measure();
        if (!writer.empty()) {
            identity_ = read_identity();
        }
    } catch (...) {
        call_library([] { return cleanup_and_exit(0); });
        throw;
    }
}

FlashCard::~FlashCard() {
    call_library([] { return cleanup_and_exit(0); });
}

// A location may exist in several PCI domains; then only a location with its domain names an
// adapter.
void FlashCard::find() {
    g_adapter_count = call_library(scan_hbas);
    unsigned found = 0;
    for (std::uint8_t i = 0; i < std::min<unsigned>(g_adapter_count, KX_MOST_ADAPTERS); ++i) {
        const pci_dev& device = *kestrix_hbas[i];
        if (location_ == bus_location_of(device) || location_ == full_bus_location_of(device)) {
            index_ = i;
            device_id_ = device.device_id;
            ++found;
        }
    }
    if (found == 0) {
        throw Failure(ExitCode::kNotFound, fmt::format("No adapter with a flash at {}", location_));
    }
    if (found > 1) {
        throw Failure(
            ExitCode::kUsage,
            fmt::format("{} is in several PCI domains; put the domain in front", location_));
    }
    revision_ = get_chip_revision(index_);
    const bool has_q3_id = device_id_ > 0 && device_id_ < kQ3Ids;
    if (revision_ > 5 || (revision_ == 3 && !has_q3_id)) {
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format("{}: the flash of device {:04x} is not known", location_, device_id_));
    }
}

const char* FlashCard::chip() const { return revision_ == 3 ? "Q3" : revision_ == 4 ? "Q4" : "Q5"; }

std::string FlashCard::full_location() const { return full_bus_location_of(*kestrix_hbas[index_]); }

std::string FlashCard::serial_at(const std::string& full_location) const {
    for (std::uint8_t i = 0; i < std::min<unsigned>(g_adapter_count, KX_MOST_ADAPTERS); ++i) {
        if (i != index_ && full_bus_location_of(*kestrix_hbas[i]) == full_location) {
            return product_of(i).serial;
        }
    }
    return {};
}

// The library's data about the bus are those of the first scan, so the configuration space is read.
FlashCard::Identity FlashCard::read_identity() const {
    Identity identity{};
    call_library([&] {
        pci_dev* const device = kestrix_hbas[index_];
        identity.ids = pci_read_long(device, PCI_VENDOR_ID);
        identity.registers = pci_read_long(device, PCI_BASE_ADDRESS_0);
    });
    return identity;
}

void FlashCard::check_unmoved() const {
    check_present();
    if (const std::string now = product_of(index_).serial; now != serial_) {
        const auto text = [](const std::string& serial) {
            return serial.empty() ? std::string("unknown") : printable(serial);
        };
        throw Failure(
            ExitCode::kBusy, fmt::format(
                                 "{}: expected the serial number {}; found {}; nothing was changed",
                                 location_, text(serial_), text(now)));
    }
}

void FlashCard::check_present() const {
    const auto text = [](const Identity& identity) {
        constexpr unsigned kIdBits = 16;
        return fmt::format(
            "device {:04x}:{:04x}, registers at {:#x}", identity.ids & 0xFFFF,
            identity.ids >> kIdBits, identity.registers);
    };
    if (const Identity now = read_identity(); now != identity_) {
        throw Failure(
            ExitCode::kBusy, fmt::format(
                                 "{}: expected {}; found {}; nothing was changed", location_,
                                 text(identity_), text(now)));
    }
}

void FlashCard::measure() {
    if (revision_ == 3) {
        layout_ = q3_flash_layout();
        return;
    }
    open_window();
    const std::int32_t size = call_library([&] { return get_flash_params(index_); });
    if (size == KX_FLASH_INVALID) {
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format("{}: the flash is of an unknown manufacturer", location_));
    }
    if (size <= 0) {
        check_flash(size, location_ + ": identifying the flash");
    }
    if (size <= 0 || static_cast<std::uint32_t>(size) > kReach) {
        throw Failure(
            ExitCode::kNotSupported, fmt::format("{}: the flash is of an unknown size", location_));
    }
    const std::int32_t sectors = call_library([&] { return get_flash_params_sf_nsec(index_); });
    layout_ = q4_flash_layout(
        static_cast<std::uint32_t>(size), sectors > 0 ? static_cast<std::uint32_t>(sectors) : 0);
}

std::string FlashCard::name() const {
    return fmt::format(
        "{} ({}, {}, serial number {})", location_, chip(),
        product_.empty() ? "unknown product" : printable(product_),
        serial_.empty() ? "unknown" : printable(serial_));
}

std::string FlashCard::interfaces_text() const {
    std::string text;
    for (const HostInterface& each : interfaces_) {
        text += fmt::format(
            "{}{} (MAC {})", text.empty() ? "" : ", ", printable(each.name),
            each.mac.empty() ? "unknown" : printable(each.mac));
    }
    return text;
}

Json FlashCard::json() const {
    return {
        {"location", location_},
        {"interfaces", json_array(interfaces_, interface_json)},
        {"chip", chip()},
        {"product", text_or_null(product_)},
        {"serial_number", text_or_null(serial_)},
    };
}

void FlashCard::open_window() const {
    if (mmapd_addr != 0 && mmapd_adapter == index_) {
        return;
    }
    int reason = 0;
    const std::int32_t status = call_library([&] {
        const std::int32_t result =
            revision_ == 3 ? connect_to_hba(index_) : connect_to_hba_Q4(index_);
        reason = errno;
        return result;
    });
    if (status != 0) {
        const bool memory_was_open = memfd >= 0;
        throw memory_was_open ? failed_registers(location_, full_location(), reason)
                              : failed_memory(location_, reason);
    }
}

std::vector<std::uint8_t> FlashCard::read(const Range& range, std::string_view label) const {
    open_window();
    std::vector<std::uint8_t> bytes(range.size());
    std::optional<Progress> progress;
    if (!label.empty()) {
        progress.emplace(std::string(label), bytes.size());
    }
    for (std::uint32_t done = 0; done < bytes.size(); done += kReadAtOnce) {
        const std::uint32_t part = std::min(range.size() - done, kReadAtOnce);
        const std::uint32_t address = range.begin + done;
        const std::int32_t status = call_library([&] {
            auto* const words = reinterpret_cast<std::uint32_t*>(bytes.data() + done);
            const std::uint32_t count = part / sizeof(std::uint32_t);
            return is_q3() ? q3_read_flash(index_, address, count, words)
                           : q4_read_flash(index_, address, count, words, 0);
        });
        check_flash(status, fmt::format("{}: reading the flash at {:#x}", location_, address));
        if (progress) {
            progress->add(part);
        }
    }
    return bytes;
}

}  // namespace kx::ctl
