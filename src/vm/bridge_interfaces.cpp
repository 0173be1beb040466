// Network interfaces of domains on bridges of the host: given by virsh, listed from the domain's
// live description, taken away by editing it.
#include <kxlinhw/hex.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "machines/documents.hpp"
#include "support/handle.hpp"
#include "support/shell.hpp"
#include "support/text.hpp"
#include "vm/agent_memory.hpp"
#include "vm/agent_services.hpp"
#include "vm/description_edit.hpp"
#include "vm/domain_file.hpp"
#include "vm/libvirt_call.hpp"
#include "vm/optional_library.hpp"

static_assert(sizeof(_interfaceInfo) == 56, "agents step through the array by this size");
static_assert(offsetof(_interfaceInfo, type) == 6 && offsetof(_interfaceInfo, bridge) == 16);
static_assert(offsetof(_interfaceInfo, targetDev) == 26 && offsetof(_interfaceInfo, model) == 36);
static_assert(offsetof(_interfaceInfo, alias) == 46);

using kx::vm::kLibvirt;
using kx::vm::log_failure;

namespace {

using kx::machines::Outcome;

constexpr std::size_t kElementTextSize = 500;
constexpr std::size_t kPieceSize = 50;  // longer than any element with full fields

// Room for the digits of an id, with their NUL, in the commands of the two ways to give a domain an
// interface. An id that does not fit is refused: cut, it would name another domain.
constexpr std::size_t kIdRoom = 10;
constexpr std::size_t kSmallIdRoom = 5;

std::optional<std::string> attach_command(int id, std::size_t id_room, std::string_view bridge) {
    const std::string digits = std::to_string(id);
    if (digits.size() >= id_room) {
        return std::nullopt;
    }
    std::string command = kx::vm::kVirsh;
    command.append(" attach-interface ").append(digits);
    return command.append(" --type bridge --source ").append(kx::shell_word(bridge));
}

// SIGCHLD as by default: std::system cannot tell how a command ended whose agent ignores it. Like
// the signals that std::system itself ignores meanwhile, it is the whole process's.
class ChildSignalByDefault {
public:
    ChildSignalByDefault() {
        struct sigaction by_default {};
        by_default.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &by_default, &before_);
    }
    ~ChildSignalByDefault() { sigaction(SIGCHLD, &before_, nullptr); }
    ChildSignalByDefault(const ChildSignalByDefault&) = delete;
    ChildSignalByDefault& operator=(const ChildSignalByDefault&) = delete;

private:
    struct sigaction before_ {};
};

// Copy a whole text with its NUL to a field of a record. A longer text continues into the next
// fields, up to the end of the record.
void copy_whole(_interfaceInfo& record, std::size_t offset, const char* text) {
    const std::size_t length = std::min(std::strlen(text) + 1, sizeof record - offset);
    std::memcpy(reinterpret_cast<char*>(&record) + offset, text, length);
}

// The six bytes of "52:54:00:12:34:56". Digits that are missing at the end count as nothing.
void read_mac(_interfaceInfo& record, const char* text) {
    char digits[18] = {};
    std::memcpy(digits, text, strnlen(text, sizeof digits - 1));
    for (std::size_t k = 0; k < sizeof record.mac; ++k) {
        record.mac[k] = static_cast<unsigned char>(atohex(digits + 3 * k));
    }
}

// In the order of the fields: a text that is longer than its field is overwritten by the next
// texts.
void fill_record(_interfaceInfo& record, const kx::machines::InterfaceTexts& texts) {
    copy_whole(record, offsetof(_interfaceInfo, type), texts.type);
    read_mac(record, texts.mac);
    copy_whole(record, offsetof(_interfaceInfo, bridge), texts.bridge);
    copy_whole(record, offsetof(_interfaceInfo, targetDev), texts.target_device);
    copy_whole(record, offsetof(_interfaceInfo, model), texts.model);
    copy_whole(record, offsetof(_interfaceInfo, alias), texts.alias);
}

// Fills the caller's array. Items other than elements leave their records zero.
class RecordTaker : public kx::machines::InterfaceTaker {
public:
    RecordTaker(_interfaceInfo** list, int* count) : list_(list), count_(count) {}

    bool begin(std::size_t count) override {
        records_ = kx::vm::allocate_array<_interfaceInfo>(count);
        if (records_ == nullptr) {
            return false;
        }
        *list_ = records_;
        *count_ = static_cast<int>(count);
        return true;
    }
    void take(std::size_t k, const kx::machines::InterfaceTexts& texts) override {
        fill_record(records_[k], texts);
    }
    [[nodiscard]] bool has_records() const { return records_ != nullptr; }

private:
    _interfaceInfo** list_;
    int* count_;
    _interfaceInfo* records_ = nullptr;
};

Outcome read_interfaces(VMUtils& vm, const char* description, RecordTaker& taker) {
    const kx::machines::Documents* const documents =
        kx::vm::write_domain_file(description) ? kx::vm::documents() : nullptr;
    return documents == nullptr ? Outcome::kNoDocument
                                : documents->read_interfaces(vm, kx::vm::kDomainFile, taker);
}

int list_interfaces(VMUtils& vm, const char* description, _interfaceInfo** list, int* count) {
    RecordTaker taker(list, count);
    switch (read_interfaces(vm, description, taker)) {
        case Outcome::kNoDocument:
            log_failure("ListInterfaces: Error while reading domain configuration");
            return 1;
        case Outcome::kNoRoot:
            log_failure("ListInterfaces: Error while reading domain configuration");
            throw std::runtime_error("empty XML document");
        case Outcome::kParserError:
            log_failure("ListInterfaces: Error while parsing");
            return 1;
        case Outcome::kRead:
            break;
    }
    if (!taker.has_records()) {
        log_failure("ListInterfaces: Memory allocation failure");
        return 1;
    }
    return 0;
}

std::string mac_element(const unsigned char (&mac)[6]) {
    char text[kPieceSize];
    std::snprintf(
        text, sizeof text, "<mac address='%02x:%02x:%02x:%02x:%02x:%02x'/>", mac[0], mac[1], mac[2],
        mac[3], mac[4], mac[5]);
    return text;
}

// The source element is not closed, and has blanks: agents know the text as it is.
std::string interface_element(const _interfaceInfo& info) {
    const std::string_view model = kx::field_text(info.model);
    std::string text = "<interface type='bridge'>" + mac_element(info.mac);
    text.append("<source bridge = '").append(kx::field_text(info.bridge)).append("'>");
    text.append("<target dev='").append(kx::field_text(info.targetDev)).append("'/>");
    if (!model.empty() && model != "default") {
        text.append("<model type='").append(model).append("'/>");
    }
    return text.append("</interface>");
}

bool has_mac(const _interfaceInfo& info) {
    return std::any_of(
        std::begin(info.mac), std::end(info.mac), [](unsigned char byte) { return byte != 0; });
}

// Anywhere in the block, so "br1" also finds "br10", and an empty text is in every block.
bool is_block_of(const _interfaceInfo& info, std::string_view block) {
    return block.find(kx::field_text(info.type)) != block.npos &&
           block.find(kx::field_text(info.bridge)) != block.npos &&
           block.find(kx::field_text(info.targetDev)) != block.npos;
}

}  // namespace

int VMUtils::attachBrdgToVM(int id, char* bridge) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("AddBridgeToVM: LibVirt connection failed");
        return 1;
    }
    const auto command = bridge == nullptr ? std::nullopt : attach_command(id, kIdRoom, bridge);
    const auto output = command ? kx::vm::run(*command) : std::nullopt;
    if (!output) {
        return 1;
    }
    if (output->find("success") == std::string::npos) {
        KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_FAILURE, "AddBridgeToVM: %s", output->c_str());
        return 1;
    }
    return 0;
}

int VMUtils::attachInterfaceToVM(int id, _interfaceInfo info) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        return 1;
    }
    const auto command = attach_command(id, kSmallIdRoom, kx::field_text(info.bridge));
    const ChildSignalByDefault signal;
    return command && std::system(command->c_str()) == 0 ? 0 : 1;
}

int VMUtils::dettachInterfaceFromVM(int id, _interfaceInfo info) {
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("DeleteVNETFromVM: libvirtd connection failure");
        return 1;
    }
    virDomain* const domain = kLibvirt.virDomainLookupByID(connection, id);
    if (domain == nullptr) {
        log_failure("DeleteVNETFromVM: Domain not found");
        return 1;
    }
    if (!kx::vm::connect(connection)) {
        return 1;
    }
    const kx::Block<char> description(kLibvirt.virDomainGetXMLDesc(domain, 0));
    const auto rest = kx::vm::without_block(
        description ? description.get() : "", "interface",
        [&info](std::string_view block) { return is_block_of(info, block); });
    if (!rest) {
        log_failure("DeleteVNETFromVM: Requested interface does not seem to attached");
        return 1;
    }
    if (kLibvirt.virDomainDefineXML(connection, rest->c_str()) == nullptr) {
        log_failure("DeleteVNETFromVM: Problem while saving the changes");
        return 1;
    }
    return 0;
}

int VMUtils::listInterfacesForVM(int id, _interfaceInfo** list, int* count) {
    if (list == nullptr || count == nullptr) {
        return 1;
    }
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("ListInterfaces: LibVirt connection failure");
        return 1;
    }
    virDomain* const domain = kLibvirt.virDomainLookupByID(connection, id);
    if (domain == nullptr) {
        log_failure("ListInterfaces: Domain not found");
        return 1;
    }
    const kx::Block<char> description(kLibvirt.virDomainGetXMLDesc(domain, 0));
    if (!description) {
        log_failure("ListInterfaces: Error while reading domain configuration");
        return 1;
    }
    return list_interfaces(*this, description.get(), list, count);
}

int VMUtils::getXMLDescForInterface(_interfaceInfo info, char** text) {
    kx::Block<char> element(static_cast<char*>(std::calloc(1, kElementTextSize)));
    if (text == nullptr || !element || !has_mac(info)) {
        return 1;
    }
    interface_element(info).copy(element.get(), kElementTextSize - 1);
    *text = element.release();
    return 0;
}
