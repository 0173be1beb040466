// The serial flash of Q3 adapters: it has a fixed size, no lock and no read-back. Every failure is
// reported on standard error.
#include <kxlinhw/adapter.h>
#include <kxlinhw/flash.h>

#include <cstdio>

#include "adapter/flash_layout.hpp"
#include "adapter/serial_flash.hpp"

namespace kx::adapter {
namespace {

struct Q3Flash {
    static constexpr FlashRegisters kRegisters = kQ3Registers;
    static constexpr Budget kTransfer{5, 10};
    static constexpr Budget kErase{5, 500};
    static constexpr Budget kProgram{5, 1};

    static uint32_t read_register(uint8_t adapter, uint32_t reg) {
        return static_cast<uint32_t>(q3_read_reg(adapter, reg));
    }
    static void write_register(uint8_t adapter, uint32_t reg, uint32_t value) {
        q3_write_reg(adapter, reg, value);
    }
    static int32_t wait_done(
        uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us) {
        return q3_wait_op_done(adapter, reg, mask, polarity, attempts, delay_us);
    }
    static int32_t send(uint8_t adapter, uint32_t count, int cont, int, uint32_t value) {
        return q3_sf1_write(adapter, count, cont, value);
    }
    static int32_t receive(uint8_t adapter, uint32_t count, int cont, int, uint32_t* value) {
        return q3_sf1_read(adapter, count, cont, value);
    }
    static int32_t wait_flash(uint8_t adapter, int attempts, int delay_ms) {
        return q3_flash_wait_op(adapter, attempts, delay_ms);
    }

    static int32_t timed_out() {
        std::fputs("ERROR: timed out waiting for serial flash to complete command!\n", stderr);
        return KX_Q3_FLASH_TIMED_OUT;
    }
    static int32_t wrong_count(uint32_t byte_count) {
        std::fprintf(
            stderr, "ERROR: wrong byte count of %d to write!\n", static_cast<int>(byte_count));
        return KX_FLASH_INVALID;
    }
    static int32_t busy() {
        std::fputs("ERROR: adapter serial flash controller busy!\n", stderr);
        return KX_FLASH_BUSY;
    }
    static int32_t write_failed(int32_t status) {
        std::fputs("ERROR: write to serial flash failed!\n", stderr);
        return status;
    }
    static int32_t read_failed(int32_t) {
        std::fputs("ERROR: could not read from serial flash!\n", stderr);
        return KX_Q3_FLASH_READ;
    }

    // In memory order; a short last word is padded, so that nothing is read past the end of the
    // data.
    static uint32_t data_word(std::span<const uint8_t> bytes, bool) {
        uint32_t word = 0;
        std::memcpy(&word, bytes.data(), bytes.size());
        return word;
    }
};

bool within_flash(uint32_t address, uint64_t length) {
    return address + length <= KX_Q3_FLASH_SIZE;
}

}  // namespace
}  // namespace kx::adapter

namespace engine = kx::adapter;
using kx::adapter::Q3Flash;

extern "C" {

int32_t q3_wait_op_done_val(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us,
    uint32_t* value) {
    return engine::wait_register<Q3Flash>(adapter, reg, mask, polarity, attempts, delay_us, value);
}

int32_t q3_wait_op_done(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us) {
    return q3_wait_op_done_val(adapter, reg, mask, polarity, attempts, delay_us, nullptr);
}

int32_t q3_sf1_write(uint8_t adapter, uint32_t byte_count, int cont, uint32_t value) {
    return engine::write_transfer<Q3Flash>(adapter, byte_count, cont, 0, value);
}

int32_t q3_sf1_read(uint8_t adapter, uint32_t byte_count, int cont, uint32_t* value) {
    return engine::read_transfer<Q3Flash>(adapter, byte_count, cont, 0, value);
}

int32_t q3_flash_wait_op(uint8_t adapter, int attempts, int delay_ms) {
    return engine::wait_written<Q3Flash>(adapter, attempts, delay_ms);
}

int32_t q3_flash_erase_sectors(uint8_t adapter, int first, int last) {
    for (int64_t sector = first; sector <= last && sector >= 0; ++sector) {
        const int32_t status = engine::erase_sector<Q3Flash>(adapter, static_cast<int>(sector));
        if (status != 0) {
            return status;
        }
    }
    return 0;
}

int32_t q3_read_flash(uint8_t adapter, uint32_t address, uint32_t nwords, uint32_t* words) {
    if (words == nullptr) {
        return KX_FLASH_INVALID;
    }
    if (address % sizeof(uint32_t) != 0 ||
        !engine::within_flash(address, uint64_t{nwords} * sizeof(uint32_t))) {
        std::fputs("ERROR: invalid address, outside of flash size!\n", stderr);
        return KX_FLASH_INVALID;
    }
    if (nwords == 0) {
        return 0;
    }
    // The dummy byte is read even when the command failed; the status combines both failures.
    int32_t status = q3_sf1_write(adapter, 4, 1, engine::addressed(engine::kFastRead, address));
    status |= q3_sf1_read(adapter, 1, 1, words);
    if (status != 0) {
        std::fputs("ERROR: could not write/read from serial flash!\n", stderr);
        return status;
    }
    status = engine::read_words<Q3Flash>(adapter, nwords, words, false);
    if (status != 0) {
        std::fputs("ERROR: could not read from serial flash!\n", stderr);
    }
    return status;
}

int32_t q3_write_flash(uint8_t adapter, uint32_t address, uint32_t n, const uint8_t* data) {
    if (data == nullptr) {
        return KX_FLASH_INVALID;
    }
    const uint32_t end_in_page = (address & engine::kPageOffset) + n;
    if (!engine::within_flash(address, n) ||
        uint64_t{address & engine::kPageOffset} + n > KX_FLASH_PAGE) {
        std::fprintf(stderr, "ERROR: write offset outside of flash size: 0x%x\n", end_in_page);
        return KX_FLASH_INVALID;
    }
    if (n == 0) {
        return 0;
    }
    if (const int32_t status = engine::start_program<Q3Flash>(adapter, address); status != 0) {
        return status;
    }
    if (const int32_t status = engine::send_page<Q3Flash>(adapter, {data, n}, false); status != 0) {
        return status;
    }
    return engine::wait_written<Q3Flash>(adapter, Q3Flash::kProgram);
}

}  // extern "C"
