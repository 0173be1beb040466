// The serial flash of Q4 and Q5 adapters: the flash reports its size, the controller is locked
// during a command, and programmed pages are read back.
#include <kxlinhw/adapter.h>
#include <kxlinhw/flash.h>

#include <array>
#include <cstdio>

#include "adapter/flash_layout.hpp"
#include "adapter/q4_flash.hpp"
#include "adapter/serial_flash.hpp"

namespace kx::adapter {
namespace {

struct Q4Flash {
    static constexpr FlashRegisters kRegisters = kQ4Registers;
    static constexpr Budget kTransfer{10, 5};
    static constexpr Budget kErase{14, 500};
    static constexpr Budget kProgram{8, 1};

    static uint32_t read_register(uint8_t adapter, uint32_t reg) {
        return q4_read_reg(adapter, reg);
    }
    static void write_register(uint8_t adapter, uint32_t reg, uint32_t value) {
        q4_write_reg(adapter, reg, value);
    }
    static int32_t wait_done(
        uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us) {
        return q4_wait_op_done(adapter, reg, mask, polarity, attempts, delay_us);
    }
    static int32_t send(uint8_t adapter, uint32_t count, int cont, int lock, uint32_t value) {
        return q4_sf1_write(adapter, count, cont, lock, value);
    }
    static int32_t receive(uint8_t adapter, uint32_t count, int cont, int lock, uint32_t* value) {
        return q4_sf1_read(adapter, count, cont, lock, value);
    }
    static int32_t wait_flash(uint8_t adapter, int attempts, int delay_ms) {
        return q4_flash_wait_op(adapter, attempts, delay_ms);
    }

    static int32_t timed_out() { return KX_FLASH_TIMED_OUT; }
    static int32_t wrong_count(uint32_t) { return KX_FLASH_INVALID; }
    static int32_t busy() { return KX_FLASH_BUSY; }
    static int32_t write_failed(int32_t status) { return status; }
    static int32_t read_failed(int32_t status) { return status; }

    // Most significant byte first, then swapped: for a short last word only zeros are sent.
    static uint32_t data_word(std::span<const uint8_t> bytes, bool byte_oriented) {
        uint32_t word = 0;
        for (const uint8_t byte : bytes) {
            word = word << 8 | byte;
        }
        return byte_oriented ? word : htonl(word);
    }
};

using Page = std::array<uint32_t, KX_FLASH_PAGE / sizeof(uint32_t)>;

void release(uint8_t adapter) { q4_write_reg(adapter, kQ4Registers.operation, 0); }

// When a step of a program command fails: print its message and release the controller.
int32_t abandon(uint8_t adapter, int32_t status, const char* message) {
    std::puts(message);
    release(adapter);
    return status;
}

// The flash's capacity code, or a negative status.
int32_t read_capacity_code(uint8_t adapter) {
    int32_t status = q4_sf1_write(adapter, 1, 1, 0, kReadIdentification);
    uint32_t identification = 0;
    if (status == 0) {
        status = q4_sf1_read(adapter, 3, 0, 1, &identification);
    }
    if (status != 0) {
        return status;
    }
    release(adapter);
    if ((identification & 0xFF) != KX_FLASH_MANUFACTURER) {
        return KX_FLASH_INVALID;
    }
    return static_cast<int32_t>(identification >> 16 & 0xFF);
}

int32_t verify_page(
    uint8_t adapter, uint32_t address, std::span<const uint8_t> data, int byte_oriented) {
    Page page;
    const int32_t status = q4_read_flash(
        adapter, address & ~kPageOffset, static_cast<uint32_t>(page.size()), page.data(),
        byte_oriented);
    if (status != 0) {
        std::puts("read flash failed during verify");
        return status;
    }
    const auto* const bytes = reinterpret_cast<const uint8_t*>(page.data());
    if (!std::equal(data.begin(), data.end(), bytes + (address & kPageOffset))) {
        std::printf("failed to correctly write the flash page at %#x\n", address);
        return KX_FLASH_MISMATCH;
    }
    return 0;
}

int32_t check_program(uint8_t adapter, uint32_t address, uint32_t n) {
    const int32_t size = get_flash_params(adapter);
    if (size < 0) {
        std::puts("get_flash_params failed");
        return KX_FLASH_INVALID;
    }
    if (address >= static_cast<uint32_t>(size) ||
        uint64_t{address & kPageOffset} + n > KX_FLASH_PAGE) {
        std::puts("invalid sf_size");
        return KX_FLASH_INVALID;
    }
    return 0;
}

// The number of sectors for size bytes.
uint32_t sectors_for(uint32_t size, int32_t sector_size) {
    const auto unit = static_cast<uint64_t>(sector_size);
    return static_cast<uint32_t>((size + unit - 1) / unit);
}

}  // namespace

int32_t measure_flash(uint8_t adapter, int32_t& sector_size) {
    const int32_t size = get_flash_params(adapter);
    if (size < 0) {
        std::puts("get flash params sf_size failed");
        return KX_FLASH_INVALID;
    }
    const int32_t sectors = get_flash_params_sf_nsec(adapter);
    if (sectors < 0) {
        std::puts("get flash params sf_nsec failed");
        return KX_FLASH_INVALID;
    }
    std::printf("sf_size %d sf_nsec %d\n", size, sectors);
    // The flash was identified twice; inconsistent answers give no sector size.
    sector_size = sectors == 0 ? 0 : size / sectors;
    return sector_size > 0 ? 0 : static_cast<int32_t>(KX_FLASH_INVALID);
}

int32_t erase_range(uint8_t adapter, uint32_t start, uint32_t size, int32_t sector_size) {
    const int first = static_cast<int>(start >> kSectorShift);
    const int count = static_cast<int>(sectors_for(size, sector_size));
    return q4_flash_erase_sectors(adapter, first, first + count - 1);
}

}  // namespace kx::adapter

namespace engine = kx::adapter;
using kx::adapter::Q4Flash;

extern "C" {

int32_t q4_wait_op_done_val(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us,
    uint32_t* value) {
    return engine::wait_register<Q4Flash>(adapter, reg, mask, polarity, attempts, delay_us, value);
}

int32_t q4_wait_op_done(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us) {
    return q4_wait_op_done_val(adapter, reg, mask, polarity, attempts, delay_us, nullptr);
}

int32_t q4_sf1_write(uint8_t adapter, uint32_t byte_count, int cont, int lock, uint32_t value) {
    return engine::write_transfer<Q4Flash>(adapter, byte_count, cont, lock, value);
}

int32_t q4_sf1_read(uint8_t adapter, uint32_t byte_count, int cont, int lock, uint32_t* value) {
    return engine::read_transfer<Q4Flash>(adapter, byte_count, cont, lock, value);
}

int32_t q4_flash_wait_op(uint8_t adapter, int attempts, int delay_ms) {
    return engine::wait_written<Q4Flash>(adapter, attempts, delay_ms);
}

// No range check: the shift counts modulo 32, like that of the processor, and no later step accepts
// the sizes for codes from 31.
int32_t get_flash_params(uint8_t adapter) {
    const int32_t code = engine::read_capacity_code(adapter);
    return code < 0 ? code : static_cast<int32_t>(uint32_t{1} << (code & 31));
}

int32_t get_flash_params_sf_nsec(uint8_t adapter) {
    const int32_t code = engine::read_capacity_code(adapter);
    if (code < 0) {
        return code;
    }
    if (code == 24) {
        return 64;  // the largest flash has sectors of 256 KiB
    }
    return code >= 20 && code <= 23 ? 1 << (code - 16) : static_cast<int32_t>(KX_FLASH_INVALID);
}

int32_t q4_flash_erase_sectors(uint8_t adapter, int first, int last) {
    for (int64_t sector = first; sector <= last; ++sector) {
        const int32_t status = engine::erase_sector<Q4Flash>(adapter, static_cast<int>(sector));
        if (status != 0) {
            std::printf(
                "erase of flash sector %d failed, error %d\n", static_cast<int>(sector), status);
            engine::release(adapter);
            return status;
        }
    }
    engine::release(adapter);
    return 0;
}

int32_t q4_erase(uint8_t adapter, uint32_t start, uint32_t size) {
    int32_t sector_size = 0;
    if (engine::measure_flash(adapter, sector_size) != 0) {
        return KX_FLASH_INVALID;
    }
    if (engine::erase_range(adapter, start, size, sector_size) != 0) {
        std::puts("q4_erase failed");
        std::printf("Error: q4_erase sizeof conf data %d\n", static_cast<int>(size));
        return KX_FLASH_INVALID;
    }
    return 0;
}

// Checks that need no flash come before the first access to the controller.
int32_t q4_read_flash(
    uint8_t adapter, uint32_t address, uint32_t nwords, uint32_t* words, int byte_oriented) {
    if (words == nullptr || address % sizeof(uint32_t) != 0) {
        return KX_FLASH_INVALID;
    }
    const int32_t size = get_flash_params(adapter);
    if (size < 0 ||
        uint64_t{address} + uint64_t{nwords} * sizeof(uint32_t) > static_cast<uint32_t>(size)) {
        return KX_FLASH_INVALID;
    }
    if (nwords == 0) {
        return 0;
    }
    if (const int32_t status =
            q4_sf1_write(adapter, 4, 1, 0, engine::addressed(engine::kFastRead, address));
        status != 0) {
        return status;
    }
    if (const int32_t status = q4_sf1_read(adapter, 1, 1, 0, words); status != 0) {  // dummy byte
        return status;
    }
    const int32_t status = engine::read_words<Q4Flash>(adapter, nwords, words, byte_oriented != 0);
    if (status == 0) {
        engine::release(adapter);
    }
    return status;
}

int32_t q4_write_flash(
    uint8_t adapter, uint32_t address, uint32_t n, const uint8_t* data, int byte_oriented) {
    if (data == nullptr) {
        return KX_FLASH_INVALID;
    }
    if (const int32_t status = engine::check_program(adapter, address, n); status != 0 || n == 0) {
        return status;
    }
    const std::span<const uint8_t> bytes(data, n);
    int32_t status = engine::start_program<Q4Flash>(adapter, address);
    if (status == 0) {
        status = engine::send_page<Q4Flash>(adapter, bytes, byte_oriented != 0);
    }
    if (status != 0) {
        return engine::abandon(adapter, status, "q4_sf1_write failed");
    }
    if (status = engine::wait_written<Q4Flash>(adapter, Q4Flash::kProgram); status != 0) {
        return engine::abandon(adapter, status, "q4_flash_wait_op failed");
    }
    engine::release(adapter);
    return engine::verify_page(adapter, address, bytes, byte_oriented);
}

}  // extern "C"
