// Module parameters: written by a shell command, read from their files. Also the only parameter of
// the Ethernet driver that agents see.
#include "settings/module_parameter.hpp"

#include <kxlinhw/host.h>
#include <kxlinhw/iwarp.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

#include "settings/paths.hpp"
#include "support/handle.hpp"
#include "support/shell.hpp"

namespace kx::settings {
namespace {

constexpr char kTxCoal[] = "tx_coal";
constexpr int kFileService = 4;
constexpr std::size_t kLineSize = 256;

std::string parameter_file(const char* module, const char* parameter) {
    return std::string(kModules) + module + kModuleParameters + parameter;
}

// The C library's reason is stored before printing and logging can change it.
void report_missing_file(const char* path) {
    const int reason = errno;
    std::puts("Error: File not found");
    KxLogger::KestrixLogMsg(
        KxLogger::MapSVCToModName(kFileService), KX_LOG_ERROR, "File %s not Found", path);
    errno = reason;
    std::perror("error");
}

}  // namespace

void write_module_parameter(const char* module, const char* parameter, int value) try {
    const std::string file = shell_word(parameter_file(module, parameter));
    const std::string command = "echo " + std::to_string(value) + " > " + file;
    static_cast<void>(executeCommand(command.c_str()));
} catch (const std::bad_alloc&) {
    // not noticed, like every refusal
}

uint32_t read_module_parameter(const char* module, const char* parameter) try {
    uint32_t value = 0;
    static_cast<void>(read_from_file(parameter_file(module, parameter).c_str(), &value));
    return value;
} catch (const std::bad_alloc&) {
    return 0;
}

}  // namespace kx::settings

extern "C" {

uint32_t setDriverParams(CardParams* block, uint32_t mask, const char*) {
    using namespace kx::settings;
    if (block == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    if ((mask & KX_CARD_TX_COAL) != 0) {
        write_module_parameter(kEthernetDriver, kTxCoal, block->tx_coal);
    }
    return KX_SUCCESS;
}

uint32_t getDriverParams(CardParams* block, const char*) {
    using namespace kx::settings;
    if (block == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    block->tx_coal = static_cast<int8_t>(read_module_parameter(kEthernetDriver, kTxCoal));
    return KX_SUCCESS;
}

int executeCommand(const char* command) {
    using namespace kx::settings;
    if (command == nullptr) {
        return -1;
    }
    const kx::Pipe pipe = kx::open_pipe(command);
    if (!pipe) {
        return -1;
    }
    std::array<char, kLineSize> line;
    while (std::fgets(line.data(), static_cast<int>(line.size()), pipe.get()) != nullptr) {
        std::printf("executeiwarpcommands : %s", line.data());
    }
    return 0;
}

int read_from_file(const char* path, uint32_t* value) {
    using namespace kx::settings;
    if (path == nullptr || value == nullptr) {
        return -1;
    }
    *value = 0;  // stays when the file contains no number
    const kx::File file = kx::open_file(path, "re");
    if (!file) {
        report_missing_file(path);
        return -1;
    }
    [[maybe_unused]] const int found = std::fscanf(file.get(), "%u", value);
    return 0;
}

}  // extern "C"
