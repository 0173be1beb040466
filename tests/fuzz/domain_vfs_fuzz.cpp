// Virtual functions in a domain's description: the output of lspci up to the first NUL, then the
// description.
#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>

#include "fuzz/fed_hypervisor.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const int file = memfd_create("description", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    fuzz::Input input(data, size);
    fuzz::fed_hypervisor.output = input.text().substr(0, 64);  // the cards are never released
    const auto description = input.rest();
    static_cast<void>(ftruncate(file, 0));
    static_cast<void>(pwrite(file, description.data(), description.size(), 0));
    fuzz::Text text(path);
    KxVFNode* node = nullptr;
    try {
        node = fuzz::vm().getVFsFromDomainInfo(text.c_str());
    } catch (const std::runtime_error&) {  // a document without a root element
    }
    while (node != nullptr) {
        KxVFNode* const next = node->next;
        std::free(node);
        node = next;
    }
    return 0;
}
