// The services that the library expects from its agent: a logger, a runner of shell commands, and a
// runner of the maker's command-line tool. These definitions replace the library's defaults.
#include <fcntl.h>
#include <kxlinhw/host.h>
#include <kxlinhw/query.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/argument_vector.hpp"
#include "files/descriptor.hpp"
#include "library/call.hpp"

namespace {

using kx::ctl::argument_vector;
using kx::ctl::Descriptor;

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

// The exit status of a child, as a shell reports it.
int exit_status(int wait_status) {
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            return kNotRun;
        }
    }
    return exit_status(status);
}

// Start a program from PATH with its standard output in `out` and no signal ignored. Its process
// id, or kNotRun.
pid_t start(std::vector<std::string>& words, const Descriptor& out) {
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.get(), STDOUT_FILENO);
    pid_t child = kNotRun;
    const int reason = posix_spawnp(
        &child, words[0].c_str(), &actions, &attributes, argument_vector(words).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return reason == 0 ? child : kNotRun;
}

// Append the output of a program to the library's management buffer, which grows as needed.
bool fill_management_buffer(const Descriptor& in) {
    while (g_MXdataBuffer != nullptr) {
        if (g_MXdataBufferOffset >= g_MXdataBufferSize && ReallocMXbuffer() != 0) {
            return false;
        }
        const auto room = static_cast<std::size_t>(g_MXdataBufferSize - g_MXdataBufferOffset);
        const ssize_t got = read(in.get(), g_MXdataBuffer + g_MXdataBufferOffset, room);
        if (got == 0) {
            return true;
        }
        if (got > 0) {
            g_MXdataBufferOffset += static_cast<std::int32_t>(got);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return false;
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
    const std::string untranslated = "export LC_ALL=C; " + command;
    std::FILE* const pipe = popen(untranslated.c_str(), "re");
    if (pipe == nullptr) {
        return kNotRun;
    }
    std::array<char, 4096> chunk;
    while (const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        output.append(chunk.data(), got);
    }
    const bool failed = std::ferror(pipe) != 0;
    const int status = pclose(pipe);
    return failed || status == -1 ? kNotRun : exit_status(status);
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
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return kNotRun;
    }
    Descriptor in(ends[0]);
    Descriptor out(ends[1]);
    const pid_t child = start(words, out);
    if (child == kNotRun) {
        return kNotRun;
    }
    out.reset();
    const bool complete = fill_management_buffer(in);
    in.reset();  // a tool that still writes gets a closed pipe
    const int status = wait_for(child);
    return complete ? status : kNotRun;
}
