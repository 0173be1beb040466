// What commands of the host print: lspci, virsh. First a byte with the command's result, then its
// output.
#include "fuzz/fed_hypervisor.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    fuzz::fed_hypervisor.command_result = input.byte() == 0xFF ? 1 : 0;
    const auto rest = input.rest();
    fuzz::fed_hypervisor.output.assign(rest.begin(), rest.end());

    KxCardBus* card = fuzz::vm().getCardsInfo();
    while (card != nullptr) {
        KxCardBus* const next = card->next;
        std::free(card);
        card = next;
    }
    _VF* vfs = nullptr;
    const int count = fuzz::vm().listVFsForVM(0, &vfs);
    fuzz::require(count >= 0, "the host's functions can be counted");
    std::free(vfs);
    int state = -1;
    const int result = fuzz::vm().getDomainState(virDomainLookupByID(nullptr, 1), &state);
    fuzz::require((result == 0) == (state != -1), "a state comes with success only");
    static_cast<void>(fuzz::vm().attachBrdgToVM(1, fuzz::fed_hypervisor.output.data()));
    return 0;
}
