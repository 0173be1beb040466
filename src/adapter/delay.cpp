// The delay between the polls of slow devices. Its name is exported: a host or a simulation that
// keeps its own time puts its own in front.
#include <kxlinhw/adapter.h>
#include <unistd.h>

extern "C" void msleep(uint32_t ms) {
    if (ms != 0) {
        usleep(ms * 1000);
    }
}
