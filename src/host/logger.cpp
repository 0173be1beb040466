// The default logger: one line on standard error for each message.
#include <kxlinhw/host.h>

#include <cstdarg>
#include <cstdio>

namespace {

const char* level_name(LogType type) {
    switch (type) {
        case KX_LOG_DEBUG:
            return "debug";
        case KX_LOG_INFO:
            return "info";
        case KX_LOG_WARNING:
            return "warning";
        case KX_LOG_ERROR:
        case KX_LOG_FAILURE:
        default:
            return "error";
    }
}

}  // namespace

__attribute__((weak)) void KxLogger::KestrixLogMsg(
    ModName module, LogType type, const char* format, ...) {
    flockfile(stderr);
    std::fprintf(
        stderr, "libkxlinhw: %s: [module %d] ", level_name(type), static_cast<int>(module));
    std::va_list values;
    va_start(values, format);
    std::vfprintf(stderr, format, values);
    va_end(values);
    std::fputc('\n', stderr);
    funlockfile(stderr);
}

__attribute__((weak)) ModName KxLogger::MapSVCToModName(int service) {
    return static_cast<ModName>(service);
}
