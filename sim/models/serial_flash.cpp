// Trigger: the transfers of the flash controller. Effect: the content changes as in a real chip. A
// write needs a write enable directly before it; a page program clears bits and wraps around within
// its page of 256 bytes; an erase sets a whole sector to 0xFF; while either is in progress,
// everything except a status read is ignored. A write is complete or does not happen, because the
// power fails only between transfers. What can be made to fail: an endless write, a wrong bit in a
// page program or in an answer, a sector that does not erase (see state::FlashFaults).
#include "models/serial_flash.hpp"

#include <cstring>

namespace kxsim::models {
namespace {

enum FlashCommand : std::uint8_t {
    kNone = 0x00,
    kPageProgram = 0x02,
    kReadStatus = 0x05,
    kWriteEnable = 0x06,
    kFastRead = 0x0B,
    kReadIdentification = 0x9F,
    kSectorErase = 0xD8,
};

constexpr std::uint8_t kWriteInProgress = 0x01;
constexpr std::uint8_t kWriteEnabled = 0x02;
constexpr std::uint8_t kErasedFlash = 0xFF;
constexpr std::uint8_t kFloating = 0xFF;  // the value of the data line when nothing drives it

constexpr std::uint32_t kHeader = 4;                // command and address
constexpr std::uint32_t kReadHeader = kHeader + 1;  // and a dummy byte
constexpr std::uint32_t kSmallSector = 64 * 1024;
constexpr std::uint32_t kLargeSector = 256 * 1024;
constexpr std::uint8_t kLargeSectorCode = 24;

bool takes_address(std::uint8_t command) {
    return command == kPageProgram || command == kFastRead || command == kSectorErase;
}

}  // namespace

std::uint8_t SerialFlash::exchange(std::uint8_t in) {
    const std::uint32_t position = latches_.received++;
    if (position == 0) {
        begin(in);
        return kFloating;
    }
    if (position < kHeader && takes_address(latches_.command)) {
        latches_.address = latches_.address << 8 | in;
        return kFloating;
    }
    return answer(in, position);
}

void SerialFlash::begin(std::uint8_t command) {
    const bool ignored = latches_.busy_polls > 0 && command != kReadStatus;
    latches_.command = ignored ? std::uint8_t{kNone} : command;
    latches_.address = 0;
    std::memset(latches_.page, kErasedFlash, sizeof latches_.page);
}

std::uint8_t SerialFlash::answer(std::uint8_t in, std::uint32_t position) {
    switch (latches_.command) {
        case kReadIdentification:
            return identification(position);
        case kReadStatus:
            return status();
        case kFastRead:
            return position < kReadHeader ? kFloating : read_byte(position);
        case kPageProgram:
            take_page_byte(in);
            return kFloating;
        default:
            return kFloating;
    }
}

std::uint8_t SerialFlash::identification(std::uint32_t position) const {
    const std::uint8_t bytes[] = {chip_.manufacturer, chip_.type, chip_.capacity_code};
    return position <= sizeof bytes ? bytes[position - 1] : std::uint8_t{0};
}

std::uint8_t SerialFlash::status() {
    std::uint8_t bits = latches_.write_enabled != 0 ? kWriteEnabled : std::uint8_t{0};
    if (latches_.busy_polls > 0) {
        bits |= kWriteInProgress;
        if (latches_.endless == 0) {
            --latches_.busy_polls;
        }
    }
    return bits;
}

std::uint8_t SerialFlash::read_byte(std::uint32_t position) {
    const std::uint8_t byte = next_byte();
    const bool misread = position == kReadHeader && ++chip_.reads == faults_.misread_at;
    return misread ? byte ^ 1U : byte;
}

std::uint8_t SerialFlash::next_byte() {
    return content_.empty() ? kErasedFlash : content_[wrapped(latches_.address++)];
}

// A division takes longer than the rest of a transfer, and few addresses need it.
std::size_t SerialFlash::wrapped(std::size_t address) const {
    return address < content_.size() ? address : address % content_.size();
}

void SerialFlash::take_page_byte(std::uint8_t in) {
    latches_.page[latches_.address % state::kFlashPage] = in;
    // After the last byte of a page comes its first one: the address stays in its page.
    latches_.address = (latches_.address & ~(state::kFlashPage - 1)) |
                       ((latches_.address + 1) & (state::kFlashPage - 1));
}

void SerialFlash::deselect() {
    const std::uint32_t received = latches_.received;
    latches_.received = 0;
    if (received == 1 && latches_.command == kWriteEnable) {
        latches_.write_enabled = 1;
    }
    if (latches_.write_enabled == 0) {
        return;
    }
    if (received > kHeader && latches_.command == kPageProgram) {
        program();
    }
    if (received == kHeader && latches_.command == kSectorErase) {
        erase();
    }
}

void SerialFlash::program() {
    const std::size_t start = latches_.address & ~(state::kFlashPage - 1);
    ++chip_.programs;
    for (std::size_t i = 0; i < state::kFlashPage && !content_.empty(); ++i) {
        content_[wrapped(start + i)] &= latches_.page[i];
    }
    if (chip_.programs == faults_.flipped_bit_at && !content_.empty()) {
        content_[wrapped(start)] ^= 1;
    }
    start_write(chip_.program_polls);
}

void SerialFlash::erase() {
    ++chip_.erases;
    const std::size_t sector = chip_.sector_size == 0 ? kSmallSector : chip_.sector_size;
    const bool stuck = latches_.address / sector + 1 == faults_.stuck_sector;
    if (!content_.empty() && !stuck) {
        const std::size_t start = latches_.address % content_.size() / sector * sector;
        const std::size_t rest = content_.size() - start;
        std::memset(content_.data() + start, kErasedFlash, sector < rest ? sector : rest);
    }
    start_write(chip_.erase_polls);
}

void SerialFlash::start_write(std::uint32_t polls) {
    latches_.write_enabled = 0;
    latches_.busy_polls = polls;
    if (chip_.programs + chip_.erases == faults_.endless_write_at) {
        latches_.endless = 1;
        latches_.busy_polls = 1;
    }
}

void fit_flash(
    state::SerialFlash& chip, std::uint8_t manufacturer, std::uint8_t type,
    std::uint8_t capacity_code) {
    chip = {};
    chip.manufacturer = manufacturer;
    chip.type = type;
    chip.capacity_code = capacity_code;
    chip.sector_size = capacity_code == kLargeSectorCode ? kLargeSector : kSmallSector;
}

}  // namespace kxsim::models
