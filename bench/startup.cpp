// Loads a library and prints how many microseconds of CPU time that took.
#include <dlfcn.h>
#include <time.h>

#include <cstdio>

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: kx-bench-startup LIBRARY\n");
        return 2;
    }
    timespec start;
    timespec end;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &start);
    if (dlopen(arguments[1], RTLD_LAZY) == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end);
    std::printf(
        "%ld\n", (end.tv_sec - start.tv_sec) * 1000000 + (end.tv_nsec - start.tv_nsec) / 1000);
    return 0;
}
