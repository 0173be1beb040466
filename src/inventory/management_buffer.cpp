// The management buffer, and the two functions that use the maker's tool and driver directly.
#include <kxlinhw/host.h>
#include <kxlinhw/query.h>
#include <kxlinhw/status.h>
#include <linux/sockios.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/interface_socket.hpp"

extern "C" {

char* g_MXdataBuffer;
int32_t g_MXdataBufferSize;
int32_t g_MXdataBufferOffset;

}  // extern "C"

namespace {

constexpr int32_t kGrowth = 16384;
constexpr uint32_t kDeviceUp = 0x404;  // command word of the Ethernet drivers' private request

constexpr std::size_t kMostArguments = 9;
constexpr std::size_t kCountOffset = 32;
constexpr std::size_t kTextsOffset = 36;
constexpr std::size_t kTextStride = 64;

using ArgumentVector = std::array<char*, kMostArguments + 1>;

int build_arguments(const void* block, ArgumentVector& vector) {
    static char tool_name[] = "zfabtool";
    auto* const bytes = static_cast<char*>(const_cast<void*>(block));
    uint32_t count = 0;
    std::memcpy(&count, bytes + kCountOffset, sizeof count);
    const std::size_t passed = std::min<std::size_t>(count, kMostArguments);
    vector[0] = tool_name;
    for (std::size_t k = 0; k < passed; ++k) {
        vector[k + 1] = bytes + kTextsOffset + kTextStride * k;
    }
    return static_cast<int>(passed) + 1;
}

// The content that the agent wrote into the buffer. Its offset is used only as far as the buffer
// reaches.
uint32_t output_size() {
    if (g_MXdataBuffer == nullptr) {
        return 0;
    }
    return static_cast<uint32_t>(
        std::clamp(g_MXdataBufferOffset, 0, std::max(g_MXdataBufferSize, 0)));
}

uint32_t return_output(char** output, uint32_t* length) {
    const uint32_t size = output_size();
    // Without output the agent gets the result of malloc(0), which it can free.
    // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI)
    *output = static_cast<char*>(std::malloc(size));
    if (*output == nullptr) {
        return size == 0 ? KX_SUCCESS : KX_NO_MEMORY;
    }
    if (size > 0) {
        std::memcpy(*output, g_MXdataBuffer, size);
    }
    *length = size;
    return KX_SUCCESS;
}

}  // namespace

extern "C" {

uint32_t InitMXBuffer(void) {
    // Null on failure: a later release must not free the previous block again.
    g_MXdataBuffer = static_cast<char*>(std::malloc(kGrowth));
    if (g_MXdataBuffer == nullptr) {
        return KX_OUTPUT_ALLOC_FAILED;
    }
    g_MXdataBufferSize = kGrowth;
    return KX_SUCCESS;
}

uint32_t ReleaseMXBuffer(void) {
    std::free(g_MXdataBuffer);
    return KX_SUCCESS;
}

uint32_t ReallocMXbuffer(void) {
    int32_t size = 0;
    // The buffer never shrinks to 0 bytes: realloc would free it and leave a dangling pointer.
    if (__builtin_add_overflow(g_MXdataBufferSize, kGrowth, &size) || size <= 0) {
        return KX_OUTPUT_REALLOC_FAILED;
    }
    void* const grown = std::realloc(g_MXdataBuffer, static_cast<std::size_t>(size));
    if (grown == nullptr) {
        return KX_OUTPUT_REALLOC_FAILED;
    }
    g_MXdataBuffer = static_cast<char*>(grown);
    g_MXdataBufferSize = size;
    return KX_SUCCESS;
}

uint32_t run_cmd_zfab(const void* arguments, char** output, uint32_t* length) {
    if (arguments == nullptr || output == nullptr || length == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    *length = 0;
    ArgumentVector vector{};
    const int count = build_arguments(arguments, vector);
    if (InitMXBuffer() != KX_SUCCESS) {
        std::puts("MX Data buffer allocation failed");
    }
    mx_cmd_wraper(count, vector.data());
    const uint32_t status = return_output(output, length);
    g_MXdataBufferOffset = 0;
    ReleaseMXBuffer();
    return status;
}

uint32_t zfabtool_devup(const char* interface_name) {
    if (interface_name == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    uint32_t command = kDeviceUp;
    const kx::InterfaceSocket socket;
    return socket.request(interface_name, SIOCDEVPRIVATE, &command) ? KX_SUCCESS : KX_UNKNOWN_ERROR;
}

}  // extern "C"
