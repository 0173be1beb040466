// The services that the library expects from its agent: a logger, a runner of shell commands, and a
// runner of the maker's command-line tool. These definitions replace the library's defaults.
#include <kxlinhw/host.h>
#include <kxlinhw/query.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/child.hpp"
#include "failure/unread.hpp"
#include "files/descriptor.hpp"
#include "library/call.hpp"
#include "library/machine_states.hpp"

namespace {

using kx::ctl::Descriptor;
using kx::ctl::run_child;

constexpr int kNotRun = -1;
constexpr int kModuleParameterService = 4;
constexpr int kIwarpService = 10;

const char* name_of(ModName module) {
    switch (static_cast<int>(module)) {
        case KX_MOD_GENERAL:
            return "general";
        case KX_MOD_INVENTORY:
            return "inventory";
        case KX_MOD_VM:
            return "vm";
        case kModuleParameterService:
            return "module parameters";
        case kIwarpService:
            return "iwarp";
        default:
            return "library";
    }
}

const char* name_of(LogType type) {
    switch (type) {
        case KX_LOG_DEBUG:
            return "debug";
        case KX_LOG_INFO:
            return "info";
        case KX_LOG_WARNING:
            return "warning";
        case KX_LOG_ERROR:
        case KX_LOG_FAILURE:
            break;
    }
    return "error";
}

// Append the next output of a program to the library's management buffer, which grows as needed.
bool fill_management_buffer(const Descriptor& in) {
    if (g_MXdataBuffer == nullptr ||
        (g_MXdataBufferOffset >= g_MXdataBufferSize && ReallocMXbuffer() != 0)) {
        return false;
    }
    const auto room = static_cast<std::size_t>(g_MXdataBufferSize - g_MXdataBufferOffset);
    const ssize_t got = read(in.get(), g_MXdataBuffer + g_MXdataBufferOffset, room);
    if (got > 0) {
        g_MXdataBufferOffset += static_cast<std::int32_t>(got);
    }
    return got >= 0 || errno == EINTR;
}

}  // namespace

BridgeUtils* BridgeUtils::ctrl = nullptr;

void KxLogger::KestrixLogMsg(ModName module, LogType type, const char* format, ...) {
    std::array<char, 1024> message{};  // a longer message is cut
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(message.data(), message.size(), format, values);
    va_end(values);
    if (type == KX_LOG_FAILURE) {
        kx::ctl::note_library_failure(message.data());
    }
    if (!kx::ctl::library_messages_shown()) {
        return;
    }
    std::fprintf(stderr, "libkxlinhw: %s: %s: %s\n", name_of(module), name_of(type), &message[0]);
}

ModName KxLogger::MapSVCToModName(int service) { return static_cast<ModName>(service); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): the library fixes the signature.
int BridgeUtils::getOutput(std::string command, std::string& output) {
    if (const auto known = kx::ctl::MachineStates::answer(command)) {
        output += *known;
        return 0;
    }
    const std::string untranslated = "export LC_ALL=C; " + command;
    const int status = run_child({"/bin/sh", "-c", untranslated}, [&](const Descriptor& in) {
        std::array<char, 4096> chunk;
        const ssize_t got = read(in.get(), chunk.data(), chunk.size());
        output.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        return got >= 0 || errno == EINTR;
    });
    if (status == 0) {
        kx::ctl::MachineStates::note_answer(command);
    } else if (status == kNotRun) {
        // The library takes it for a program that printed nothing.
        kx::ctl::note_missing("No output of: " + command);
    }
    return status;
}

int mx_cmd_wraper(int count, char** arguments) {
    constexpr std::size_t kArgumentWidth = 64;  // a longer argument has no NUL in its field
    if (count < 1 || arguments == nullptr) {
        return kNotRun;
    }
    std::vector<std::string> words;
    words.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        words.emplace_back(arguments[k], strnlen(arguments[k], kArgumentWidth));
    }
    return run_child(words, fill_management_buffer);
}
