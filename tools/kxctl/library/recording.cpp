// Replaces the library's functions that record settings. The setters call them by these names and
// do not pass on their results.
#include "library/recording.hpp"

#include <dlfcn.h>
#include <kxlinhw/settings.h>

#include <utility>

namespace {

unsigned unrecorded = 0;

template <class Function>
Function* of_library(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class Function, class... Arguments>
int keep_record(Function* save, Arguments... arguments) {
    if (kx::ctl::RecordingPause::paused()) {
        return 0;
    }
    const int result = save == nullptr ? 1 : save(arguments...);
    unrecorded += result == 0 ? 0 : 1;
    return result;
}

}  // namespace

namespace kx::ctl {

unsigned take_unrecorded() { return std::exchange(unrecorded, 0); }

}  // namespace kx::ctl

extern "C" int savePortParam(
    const char* key, const char* interface_name, uint32_t portInstance, int value) {
    static auto* const save = of_library<decltype(savePortParam)>("savePortParam");
    return keep_record(save, key, interface_name, portInstance, value);
}

extern "C" int saveSysctlParam(const char* path, int64_t value) {
    static auto* const save = of_library<decltype(saveSysctlParam)>("saveSysctlParam");
    return keep_record(save, path, value);
}
