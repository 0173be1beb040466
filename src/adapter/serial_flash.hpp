// The protocol of the serial flash: transfers of the controller, and flash commands that consist of
// transfers.
//
// The Q3 and the Q4/Q5 family differ in registers, lock bit, polling limits, statuses and messages,
// and in the steps around a command (identification, release, read-back). A Family type contains
// these differences: its constants and its exported functions. Every step calls the exported names,
// so that a host can replace each function. The exported functions call the templates here.
//
// A command starts with a transfer that keeps the flash selected (cont) and ends with a transfer
// that does not. The points at which a family releases the controller (writes 0 to the operation
// register) are part of the protocol that it shares with the host's driver.
#pragma once

#include <arpa/inet.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/flash.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

namespace kx::adapter {

struct Budget {
    int attempts;
    int delay;  // microseconds for transfers, milliseconds for writing and erasing
};

// Operation register.
inline constexpr uint32_t kOperationWrite = 1U << 0;
inline constexpr uint32_t kOperationCountShift = 1;  // byte count - 1, two bits
inline constexpr uint32_t kOperationContinue = 1U << 3;
inline constexpr uint32_t kOperationLock = 1U << 4;
inline constexpr uint32_t kOperationBusy = 1U << 31;

// Flash commands: the first byte that is sent.
enum FlashCommand : uint32_t {
    kPageProgram = 0x02,
    kReadStatus = 0x05,
    kWriteEnable = 0x06,
    kFastRead = 0x0B,
    kReadIdentification = 0x9F,
    kSectorErase = 0xD8,
};

inline constexpr uint32_t kWriteInProgress = 1;  // of the flash's status
inline constexpr uint32_t kPageOffset = KX_FLASH_PAGE - 1;

// A command and its 24-bit address, sent with the most significant byte first.
inline uint32_t addressed(FlashCommand command, uint32_t address) {
    return htonl(address) | command;
}

template <class Family>
int32_t wait_register(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us,
    uint32_t* value) {
    auto left = static_cast<uint32_t>(attempts);
    for (;;) {
        const uint32_t read = Family::read_register(adapter, reg);
        if (((read & mask) != 0) == (polarity != 0)) {
            if (value != nullptr) {
                std::memcpy(value, &read, sizeof read);
            }
            return 0;
        }
        if (--left == 0) {
            return Family::timed_out();
        }
        if (delay_us > 0) {
            usleep(static_cast<useconds_t>(delay_us));
        }
    }
}

// Start a transfer when the controller is ready, and wait until it is complete.
template <class Family>
int32_t run_transfer(uint8_t adapter, uint32_t byte_count, int cont, int lock, uint32_t direction) {
    const uint32_t operation = direction | (byte_count - 1) << kOperationCountShift |
                               (cont != 0 ? kOperationContinue : 0) |
                               (lock != 0 ? kOperationLock : 0);
    Family::write_register(adapter, Family::kRegisters.operation, operation);
    return Family::wait_done(
        adapter, Family::kRegisters.operation, kOperationBusy, 0, Family::kTransfer.attempts,
        Family::kTransfer.delay);
}

template <class Family>
int32_t check_ready(uint8_t adapter, uint32_t byte_count) {
    if (byte_count == 0 || byte_count > sizeof(uint32_t)) {
        return Family::wrong_count(byte_count);
    }
    if ((Family::read_register(adapter, Family::kRegisters.operation) & kOperationBusy) != 0) {
        return Family::busy();
    }
    return 0;
}

template <class Family>
int32_t write_transfer(uint8_t adapter, uint32_t byte_count, int cont, int lock, uint32_t value) {
    if (const int32_t status = check_ready<Family>(adapter, byte_count); status != 0) {
        return status;
    }
    Family::write_register(adapter, Family::kRegisters.data, value);
    const int32_t status = run_transfer<Family>(adapter, byte_count, cont, lock, kOperationWrite);
    return status == 0 ? 0 : Family::write_failed(status);
}

template <class Family>
int32_t read_transfer(uint8_t adapter, uint32_t byte_count, int cont, int lock, uint32_t* value) {
    if (value == nullptr) {
        return KX_FLASH_INVALID;
    }
    if (const int32_t status = check_ready<Family>(adapter, byte_count); status != 0) {
        return status;
    }
    if (const int32_t status = run_transfer<Family>(adapter, byte_count, cont, lock, 0);
        status != 0) {
        return Family::read_failed(status);
    }
    const uint32_t data = Family::read_register(adapter, Family::kRegisters.data);
    std::memcpy(value, &data, sizeof data);
    return 0;
}

template <class Family>
int32_t wait_written(uint8_t adapter, int attempts, int delay_ms) {
    auto left = static_cast<uint32_t>(attempts);
    for (;;) {
        if (const int32_t status = Family::send(adapter, 1, 1, 1, kReadStatus); status != 0) {
            return status;
        }
        uint32_t flash_status = 0;
        if (const int32_t status = Family::receive(adapter, 1, 0, 1, &flash_status); status != 0) {
            return status;
        }
        if ((flash_status & kWriteInProgress) == 0) {
            return 0;
        }
        if (--left == 0) {
            return KX_FLASH_TIMED_OUT;
        }
        if (delay_ms > 0) {
            msleep(static_cast<uint32_t>(delay_ms));
        }
    }
}

template <class Family>
int32_t wait_written(uint8_t adapter, const Budget& budget) {
    return Family::wait_flash(adapter, budget.attempts, budget.delay);
}

template <class Family>
int32_t erase_sector(uint8_t adapter, int sector) {
    if (const int32_t status = Family::send(adapter, 1, 0, 1, kWriteEnable); status != 0) {
        return status;
    }
    const uint32_t command = static_cast<uint32_t>(sector) << 8 | kSectorErase;
    if (const int32_t status = Family::send(adapter, 4, 0, 1, command); status != 0) {
        return status;
    }
    return wait_written<Family>(adapter, Family::kErase);
}

// Words may be at any address: callers pass pointers into packed records.
template <class Family>
int32_t read_words(uint8_t adapter, uint32_t nwords, uint32_t* words, bool byte_oriented) {
    auto* const out = reinterpret_cast<unsigned char*>(words);
    for (uint32_t index = 0; index < nwords; ++index) {
        const bool last = index + 1 == nwords;
        uint32_t word = 0;
        const int32_t status = Family::receive(adapter, 4, last ? 0 : 1, last ? 1 : 0, &word);
        if (status != 0) {
            return status;
        }
        word = byte_oriented ? htonl(word) : word;
        std::memcpy(out + std::size_t{index} * sizeof word, &word, sizeof word);
    }
    return 0;
}

// Send write enable and the program command; the flash then accepts the bytes of the page.
template <class Family>
int32_t start_program(uint8_t adapter, uint32_t address) {
    if (const int32_t status = Family::send(adapter, 1, 0, 1, kWriteEnable); status != 0) {
        return status;
    }
    return Family::send(adapter, 4, 1, 1, addressed(kPageProgram, address));
}

template <class Family>
int32_t send_page(uint8_t adapter, std::span<const uint8_t> data, bool byte_oriented) {
    while (!data.empty()) {
        const std::size_t count = std::min(data.size(), sizeof(uint32_t));
        const uint32_t word = Family::data_word(data.first(count), byte_oriented);
        const int cont = count == data.size() ? 0 : 1;
        const int32_t status = Family::send(adapter, static_cast<uint32_t>(count), cont, 1, word);
        if (status != 0) {
            return status;
        }
        data = data.subspan(count);
    }
    return 0;
}

}  // namespace kx::adapter
