// Replaces the library's function: no machine that runs the tests has the drivers loaded.
#include <kxlinhw/modules.h>

extern "C" uint32_t lsmod(const char*) { return 1; }
