// /proc/modules: a module's name up to the first NUL, then the file.
#include <kxlinhw/kxlinhw.h>

#include "fuzz/fed_files.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    fuzz::Text name(input.text());
    fuzz::FedFiles::feed("/proc/modules", input.rest());
    const uint32_t answer = lsmod(name.c_str());
    fuzz::require(answer == 0 || answer == 1, "a module is loaded or it is not");
    static_cast<void>(isFCOELoaded());
    static_cast<void>(isq4TOELoaded());
    return 0;
}
