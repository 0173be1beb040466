// The texts by which agents name domains and time: a byte with the operation, UUID text, time.
#include "fuzz/fed_hypervisor.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const int operation = input.byte() % 6;
    fuzz::Text uuid(input.text());
    fuzz::Text time(input.text());
    fuzz::fed_hypervisor.output = input.text();
    fuzz::fed_hypervisor.description = "<domain/>";
    const int result = fuzz::vm().VMStateOperation(uuid.c_str(), operation, time.c_str());
    fuzz::require(result == 0 || result == 1, "an operation succeeds or fails");
    static_cast<void>(fuzz::vm().dettachVFFromVM(uuid.c_str(), _VF{}));
    return 0;
}
