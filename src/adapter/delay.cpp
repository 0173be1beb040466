// The delay between the polls of slow devices. Its name is exported, so that a host or a simulation
// can replace it.
#include <kxlinhw/adapter.h>
#include <unistd.h>

extern "C" void msleep(uint32_t ms) {
    if (ms != 0) {
        usleep(ms * 1000);
    }
}
