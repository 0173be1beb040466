// A program that makes wrapped calls before any constructor runs, and again from main. It prints
// whether the early calls worked, and the first line of the list of loaded modules.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

namespace {

bool worked_early = false;

// Not sanitized: the sanitizer is not there yet either.
__attribute__((no_sanitize("address", "undefined"))) void call_early(int, char**, char**) {
    struct stat status {};
    char byte = 0;
    const int file = open("/proc/self/status", O_RDONLY);
    void* const block = std::malloc(100);
    worked_early = file >= 0 && read(file, &byte, 1) == 1 && byte == 'N' && close(file) == 0 &&
                   stat("/proc/self", &status) == 0 && access("/no/such/path", F_OK) != 0 &&
                   block != nullptr;
    std::free(block);
}

__attribute__((section(".preinit_array"), used)) void (*const kEarly)(int, char**, char**) =
    call_early;

}  // namespace

int main() {
    std::ifstream modules("/proc/modules");
    std::string line;
    std::getline(modules, line);
    std::cout << (worked_early ? "worked early\n" : "failed early\n") << line << "\n";
    return 0;
}
