// Network interfaces in a domain's description, which is the whole input.
#include <stdexcept>

#include "fuzz/fed_hypervisor.hpp"
#include "fuzz/input.hpp"
#include "support/scratch_directory.hpp"

namespace {

// Listing writes a file into the working directory.
void move_to_scratch_directory() {
    static const test::ScratchDirectory directory;
    static const test::WorkingDirectory here(directory.path());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::fed_hypervisor.description = fuzz::Input(data, size).text();
    move_to_scratch_directory();
    _interfaceInfo* list = nullptr;
    int count = 0;
    try {
        if (fuzz::vm().listInterfacesForVM(1, &list, &count) == 0) {
            fuzz::require(list != nullptr && count >= 0, "a list comes with its length");
            for (int k = 0; k < count; ++k) {
                char* text = nullptr;
                if (fuzz::vm().getXMLDescForInterface(list[k], &text) == 0) {
                    fuzz::require(strnlen(text, 500) < 500, "the element ends in its buffer");
                    std::free(text);
                }
            }
        }
    } catch (const std::runtime_error&) {  // a document without a root element
    }
    std::free(list);
    return 0;
}
