// Giving virtual functions to domains and taking them away. Giving is done live and then made
// persistent; taking away edits the persistent description alone.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/handle.hpp"
#include "vm/agent_services.hpp"
#include "vm/description_edit.hpp"
#include "vm/libvirt_call.hpp"
#include "vm/tokens.hpp"
#include "vm/uuid_text.hpp"

using kx::vm::kLibvirt;
using kx::vm::log_failure;

namespace {

constexpr std::size_t kDeviceTextSize = 200;

constexpr char kDeviceFormat[] =
    "<hostdev mode='subsystem' type='pci' managed='yes'><source>"
    "<address domain='0x%04x' bus='0x%02x' slot='0x%02x' function='0x%x'/></source></hostdev>";

constexpr std::size_t kLongestNumbers = std::size_t{4} * 8;
constexpr std::size_t kConversions = 4 + 4 + 4 + 2;  // characters of the four "%..x"
static_assert(
    sizeof kDeviceFormat - kConversions + kLongestNumbers <= kDeviceTextSize,
    "every function has room");

// Attach live, then redefine the domain from what it has become. A domain that cannot be redefined
// keeps the function until it stops.
int attach(
    VMUtils& vm, virConnectPtr connection, virDomainPtr domain, const _VF& vf,
    const char* refusal) {
    char* text = nullptr;
    if (vm.getXMLDescForVF(vf, &text) != 0) {
        log_failure("AttachVFToVM: Could not get domain configuration");
        return 1;
    }
    kx::Block<char> device(text);
    if (kLibvirt.virDomainAttachDevice(domain, device.get()) != 0) {
        log_failure(refusal);
        return 1;
    }
    device.reset();
    kx::Block<char> description(kLibvirt.virDomainGetXMLDesc(domain, 0));
    if (description && kLibvirt.virDomainDefineXML(connection, description.get()) != nullptr) {
        static_cast<void>(description.release());  // stays allocated unless libvirt refuses it
    }
    return 0;
}

// Walks the words of a host device's block.
class DeviceWords {
public:
    explicit DeviceWords(std::string_view block)
        : words_(kx::vm::tokens_of(block, "<>' =\t\n")), next_(words_.begin()) {}

    // Print the words up to the wanted one, and stop at it.
    void print_until(std::string_view wanted) {
        for (; next_ != words_.end() && *next_ != wanted; ++next_) {
            std::puts(next_->c_str());
        }
    }

    // Step over the wanted word; false when another one stands there.
    [[nodiscard]] bool take(std::string_view wanted) {
        const bool found = next_ != words_.end() && *next_ == wanted;
        next_ += found ? 1 : 0;
        return found;
    }

    // Is the next pair of words this name and this number?
    [[nodiscard]] bool take_number(std::string_view name, int32_t number) {
        unsigned value = 0;
        const bool read =
            take(name) && next_ != words_.end() && std::sscanf(next_->c_str(), "0x%x", &value) == 1;
        next_ += read ? 1 : 0;
        return read && static_cast<int32_t>(value) == number;
    }

private:
    const std::vector<std::string> words_;
    std::vector<std::string>::const_iterator next_;
};

// libvirt writes type='pci' before the address, and the address in this order.
bool is_block_of(const _VF& vf, std::string_view block) {
    DeviceWords words(block);
    words.print_until("pci");
    words.print_until("address");
    return words.take("address") && words.take_number("domain", vf.pciDomain) &&
           words.take_number("bus", vf.bus) && words.take_number("slot", vf.slot) &&
           words.take_number("function", vf.function);
}

int detach(virConnectPtr connection, virDomainPtr domain, const _VF& vf) {
    if (domain == nullptr) {
        log_failure("DettachVFFromVM: Invalid Domain Id");
        return 1;
    }
    const char* const description =
        kLibvirt.virDomainGetXMLDesc(domain, VIR_DOMAIN_XML_INACTIVE);  // never released
    const auto rest = kx::vm::without_block(
        description == nullptr ? "" : description, "hostdev",
        [&vf](std::string_view block) { return is_block_of(vf, block); });
    if (!rest) {
        log_failure("DettachVFFromVM: VF not attached");
        return 1;
    }
    if (kLibvirt.virDomainDefineXML(connection, rest->c_str()) == nullptr) {
        log_failure("DettachVFFromVM: Error while saving configuration");
        return 1;
    }
    return 0;
}

const char* printable(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

int VMUtils::getXMLDescForVF(_VF vf, char** text) {
    if (text == nullptr) {
        return 1;
    }
    *text = static_cast<char*>(std::malloc(kDeviceTextSize));
    if (*text != nullptr) {
        std::memset(*text, 0, kDeviceTextSize);
        std::snprintf(
            *text, kDeviceTextSize, kDeviceFormat, static_cast<unsigned>(vf.pciDomain),
            static_cast<unsigned>(vf.bus), static_cast<unsigned>(vf.slot),
            static_cast<unsigned>(vf.function));
    }
    return 0;
}

int VMUtils::attachVFToVM(int id, _VF vf) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("AttachVFToVM: LibVirt connection failure");
        return 1;
    }
    std::printf("AttachVFToVM: VM ID: %d\n", id);
    virDomain* const domain = kLibvirt.virDomainLookupByID(connection, id);
    if (domain == nullptr) {
        log_failure("AttachVFToVM: Invalid Domain ID");
        return 1;
    }
    return attach(
        *this, connection, domain, vf, "AttachVFToVM: Attachind device to VM failed");  // [sic]
}

int VMUtils::attachVFToVM(char* uuid, _VF vf) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("AttachVFToVM: LibVirt connection failure");
        return 1;
    }
    std::printf("AttachVFToVM: UUID: %s\n", printable(uuid));
    virDomain* const domain = kx::vm::domain_of_uuid(connection, uuid);
    if (domain == nullptr) {
        log_failure("AttachVFToVM: Invalid Domain UUID");
        return 1;
    }
    return attach(*this, connection, domain, vf, "AttachVFToVM: Attaching device to VM failed");
}

int VMUtils::dettachVFFromVM(int id, _VF vf) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("DettachVFFromVM: LibVirtConnection failed");
        return 1;
    }
    std::printf("dettachVFFromVM: VM ID: %d\n", id);
    return detach(connection, kLibvirt.virDomainLookupByID(connection, id), vf);
}

int VMUtils::dettachVFFromVM(char* uuid, _VF vf) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("DettachVFFromVM: LibVirtConnection failed");
        return 1;
    }
    std::printf("dettachVFFromVM: UUID: %s\n", printable(uuid));
    return detach(connection, kx::vm::domain_of_uuid(connection, uuid), vf);
}
