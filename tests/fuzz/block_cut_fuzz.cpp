// Taking a block out of a domain's description: a VF, an interface's texts, then the description.
// Whatever is taken out, all else comes back byte for byte.
#include <algorithm>

#include "fuzz/fed_hypervisor.hpp"
#include "fuzz/input.hpp"

namespace {

constexpr std::string_view kDeclaration =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";

// Is the rest what stays of a text when one piece of it is missing?
bool has_one_gap(std::string_view rest, std::string_view text) {
    const auto differs = std::mismatch(rest.begin(), rest.end(), text.begin(), text.end()).first;
    return rest.size() < text.size() && text.ends_with(std::string_view(differs, rest.end()));
}

void check_defined(bool detached) {
    const std::string_view defined = fuzz::fed_hypervisor.defined;
    if (!detached) {
        fuzz::require(defined.empty(), "nothing is defined when nothing is taken out");
        return;
    }
    fuzz::require(defined.starts_with(kDeclaration), "the declaration leads");
    fuzz::require(
        has_one_gap(defined.substr(kDeclaration.size()), fuzz::fed_hypervisor.description),
        "one block is missing, all else is there");
}

template <std::size_t N>
void put(char (&field)[N], std::span<const uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), field);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const _VF vf{input.byte(), input.byte(), input.byte(), input.byte()};
    _interfaceInfo info{};
    put(info.type, input.take(sizeof info.type));
    put(info.bridge, input.take(sizeof info.bridge));
    put(info.targetDev, input.take(sizeof info.targetDev));
    fuzz::fed_hypervisor.description = input.text();

    fuzz::fed_hypervisor.defined.clear();
    check_defined(fuzz::vm().dettachVFFromVM(1, vf) == 0);
    fuzz::fed_hypervisor.defined.clear();
    check_defined(fuzz::vm().dettachInterfaceFromVM(1, info) == 0);
    return 0;
}
