// Stands in front of the library's own savePortParam, which its setters call by that name.
#include "recording.hpp"

#include <dlfcn.h>
#include <kxlinhw/settings.h>

extern "C" int savePortParam(
    const char* key, const char* interface_name, uint32_t portInstance, int value) {
    static const auto save =
        reinterpret_cast<decltype(&savePortParam)>(dlsym(RTLD_NEXT, "savePortParam"));
    if (kx::ctl::RecordingPause::paused() || save == nullptr) {
        return 0;
    }
    return save(key, interface_name, portInstance, value);
}
