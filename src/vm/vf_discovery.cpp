// The adapters' virtual functions: those of this host, as lspci lists them, and those that a
// domain's description assigns to it. A domain's VF counts as the maker's when functions of the
// maker sit on its bus.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "machines/documents.hpp"
#include "support/chain.hpp"
#include "vm/agent_memory.hpp"
#include "vm/agent_services.hpp"
#include "vm/domain_file.hpp"
#include "vm/libvirt_call.hpp"
#include "vm/optional_library.hpp"
#include "vm/tokens.hpp"
#include "vm/uuid_text.hpp"

static_assert(sizeof(_VF) == 16, "agents step through the array by this size");
static_assert(offsetof(_VF, bus) == 4 && offsetof(_VF, slot) == 8 && offsetof(_VF, function) == 12);
static_assert(offsetof(KxCardBus, next) == 8 && offsetof(KxVFNode, next) == 16);

using kx::vm::kLibvirt;
using kx::vm::log_failure;

namespace {

using kx::machines::Outcome;

constexpr int kHostId = 0;  // in the place of a domain's id

void print_vf(const _VF& vf) { std::printf("\n %d:%d.%d\n", vf.bus, vf.slot, vf.function); }

const KxCardBus* card_on_bus(const KxCardBus* card, int32_t pci_domain, int32_t bus) {
    while (card != nullptr && (card->bus != bus || card->pciDomain != pci_domain)) {
        card = card->next;
    }
    return card;
}

// Appends the maker's VFs to a list.
class VfTaker : public kx::machines::DeviceTaker {
public:
    explicit VfTaker(VMUtils& vm) : vm_(vm) {}

    void begin() override { cards_ = vm_.getCardsInfo(); }  // never released
    bool take(int32_t pci_domain, int32_t bus, int32_t slot, int32_t function) override {
        const KxCardBus* const card = card_on_bus(cards_, pci_domain, bus);
        if (card == nullptr) {
            return false;
        }
        if (KxVFNode* const node = vfs_.append(kx::allocate_record<KxVFNode>())) {
            node->vf = {card->pciDomain, card->bus, slot, function};
            print_vf(node->vf);
        }
        return true;
    }
    [[nodiscard]] KxVFNode* first() const { return vfs_.first(); }
    [[nodiscard]] KxVFNode* release() { return vfs_.release(); }

private:
    VMUtils& vm_;
    const KxCardBus* cards_ = nullptr;
    kx::Chain<KxVFNode> vfs_;
};

void print_no_document() { std::puts("some thing went wrong in getting document node"); }

Outcome read_devices(VMUtils& vm, const char* path, VfTaker& taker) {
    const kx::machines::Documents* const documents =
        path == nullptr ? nullptr : kx::vm::documents();
    return documents == nullptr ? Outcome::kNoDocument : documents->read_devices(vm, path, taker);
}

// The VFs that a description assigns to its domain, by way of kDomainFile.
const KxVFNode* vfs_of_description(VMUtils& vm, const char* description) {
    if (!kx::vm::write_domain_file(description)) {
        print_no_document();
        return nullptr;
    }
    std::string path = kx::vm::kDomainFile;
    return vm.getVFsFromDomainInfo(path.data());
}

int32_t length_of(const KxVFNode* node) {
    int32_t length = 0;
    for (; node != nullptr; node = node->next) {
        ++length;
    }
    return length;
}

// The command that prints the addresses of the maker's functions whose device id begins so.
std::string host_vf_command(const char* grep, const char* device_id) {
    char vendor_id[5];
    std::snprintf(vendor_id, sizeof vendor_id, "%04x", KESTRIX_PCI_VENDOR_ID & 0xFFFFU);
    std::string command = "lspci -Dn| ";
    command.append(grep).append(vendor_id).append(":").append(device_id);
    return command.append("\" | cut -d ' ' -f1");
}

// The addresses of the host's VFs of both device families; nothing when lspci fails for both.
std::optional<std::vector<std::string>> host_vf_addresses() {
    const auto first_family = kx::vm::run(host_vf_command("grep  \"", "48"));
    const auto second_family = kx::vm::run(host_vf_command("grep -i \"", "a007"));
    if (!first_family && !second_family) {
        return std::nullopt;
    }
    std::vector<std::string> addresses = kx::vm::tokens_of(first_family.value_or(""), "\n");
    for (std::string& address : kx::vm::tokens_of(second_family.value_or(""), "\n")) {
        addresses.push_back(std::move(address));
    }
    return addresses;
}

// lspci's numbers are read as decimal ones; a letter ends the reading, what lies behind is 0.
int list_host_vfs(_VF*& vfs) {
    const auto addresses = host_vf_addresses();
    if (!addresses) {
        return 1;
    }
    vfs = kx::vm::allocate_array<_VF>(addresses->size());
    if (vfs == nullptr) {
        log_failure("ListVFsForVM: No VFs found");
        return -1;
    }
    _VF* vf = vfs;
    for (const std::string& address : *addresses) {
        std::sscanf(
            address.c_str(), "%d:%d:%d.%d", &vf->pciDomain, &vf->bus, &vf->slot, &vf->function);
        ++vf;
    }
    return static_cast<int>(addresses->size());
}

}  // namespace

KxCardBus* VMUtils::getCardsInfo() {
    const auto output = kx::vm::run(R"(lspci -D | grep "Kestrix" | cut -d" " -f1)");
    kx::Chain<KxCardBus> cards;
    std::string pci_domain;
    std::string bus;
    // Four words a line: domain, bus, slot, function. The texts distinguish cards.
    const std::vector<std::string> words = kx::vm::tokens_of(output.value_or(""), ":.\n");
    for (std::size_t k = 0; k + 1 < words.size(); k += 4) {
        if (words[k] == pci_domain && words[k + 1] == bus) {
            continue;
        }
        pci_domain = words[k];
        bus = words[k + 1];
        if (KxCardBus* const card = cards.append(kx::allocate_record<KxCardBus>())) {
            card->pciDomain = std::atoi(pci_domain.c_str());
            card->bus = std::atoi(bus.c_str());
        }
    }
    return cards.release();
}

KxVFNode* VMUtils::getVFsFromDomainInfo(char* path) {
    VfTaker taker(*this);
    switch (read_devices(*this, path, taker)) {
        case Outcome::kNoDocument:
            print_no_document();
            break;
        case Outcome::kNoRoot:
            throw std::runtime_error("empty XML document");
        case Outcome::kRead:
            for (const KxVFNode* node = taker.first(); node != nullptr; node = node->next) {
                print_vf(node->vf);
            }
            break;
        case Outcome::kParserError:
            break;
    }
    return taker.release();
}

int VMUtils::listVFsForVM(virDomainPtr domain, _VF**& vfs) {
    if (domain == nullptr) {
        log_failure("ListVFsForVM: Invalid VMID");
        return -1;
    }
    const char* const description = kLibvirt.virDomainGetXMLDesc(domain, 0);  // never released
    if (description == nullptr || vfs == nullptr) {
        return -1;
    }
    const KxVFNode* node = vfs_of_description(*this, description);  // never released
    const int32_t count = length_of(node);
    std::printf("The number of VFS %d", count);
    std::fflush(stdout);
    *vfs = kx::vm::allocate_array<_VF>(static_cast<std::size_t>(count));
    if (*vfs == nullptr) {
        return -1;
    }
    for (_VF* vf = *vfs; node != nullptr; node = node->next) {
        *vf = node->vf;
        print_vf(*vf++);
    }
    return 0;
}

int VMUtils::listVFsForVM(char* uuid, _VF** vfs) {
    std::puts(uuid == nullptr ? "" : uuid);
    virDomain* const domain =
        uuid == nullptr ? nullptr : getDomainPtr(kx::vm::uuid_of_text(uuid).data());
    return listVFsForVM(domain, vfs);
}

int VMUtils::listVFsForVM(int id, _VF** vfs) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("ListVFsForVM: LibVirtConnection Failed");
        return -1;
    }
    if (id != kHostId) {
        return listVFsForVM(kLibvirt.virDomainLookupByID(connection, id), vfs);
    }
    return vfs == nullptr ? -1 : list_host_vfs(*vfs);
}
