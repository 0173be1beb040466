#include "machines/documents.hpp"

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <type_traits>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

#include "machines/domain_document.hpp"
#include "machines/xerces_text.hpp"

static_assert(std::is_same_v<XMLCh, char16_t>, "VMUtils shows texts of Xerces as char16_t");

namespace kx::machines {

namespace {

using xercesc::DOMElement;
using xercesc::XMLString;

// VMUtils names the parser by the namespace of Xerces 3.2, whichever version made it.
using NamedParser = decltype(VMUtils::parser);

// Parse a file with the object's parser, which may be exchanged for another one.
xercesc::DOMDocument* document_of(VMUtils& vm, const char* path) {
    class Exchange {
    public:
        explicit Exchange(NamedParser& place)
            : parser(reinterpret_cast<xercesc::XercesDOMParser*>(place)), place_(place) {}
        ~Exchange() { place_ = reinterpret_cast<NamedParser>(parser); }
        Exchange(const Exchange&) = delete;
        Exchange& operator=(const Exchange&) = delete;

        xercesc::XercesDOMParser* parser;

    private:
        NamedParser& place_;
    } exchange(vm.parser);
    return parse(exchange.parser, path);
}

// A host device of the kind that assigns a PCI function.
bool is_pci_device(const DOMElement& device) {
    return device.hasAttribute(u"mode") && device.hasAttribute(u"type") &&
           XMLString::equals(device.getAttribute(u"mode"), u"subsystem") &&
           XMLString::equals(device.getAttribute(u"type"), u"pci");
}

// One number of an address element, in hexadecimal with or without "0x"; a missing one is 0.
class AddressNumber {
public:
    AddressNumber(const DOMElement& address, const XMLCh* attribute)
        : text_(address.getAttribute(attribute)) {}

    [[nodiscard]] int32_t value() const {
        return static_cast<int32_t>(std::strtol(text_.c_str(), nullptr, 16));
    }
    void abandon() { text_.abandon(); }

private:
    LocalText text_;
};

void take_address(const VMUtils& vm, const DOMElement& address, DeviceTaker& taker) {
    AddressNumber pci_domain(address, vm.domainAttr);
    AddressNumber bus(address, vm.busAttr);
    AddressNumber function(address, vm.functionAttr);
    AddressNumber slot(address, vm.slotAttr);
    if (!taker.take(pci_domain.value(), bus.value(), slot.value(), function.value())) {
        // The texts of an address that is not the maker's stay allocated.
        for (AddressNumber* number : {&pci_domain, &bus, &function, &slot}) {
            number->abandon();
        }
    }
}

Outcome take_devices(const VMUtils& vm, const DOMElement& root, DeviceTaker& taker) {
    const xercesc::DOMNodeList& devices = *root.getElementsByTagName(vm.hostdevTag);
    taker.begin();
    const XMLSize_t count = devices.getLength();
    for (XMLSize_t k = 0; k < count; ++k) {
        const DOMElement* const device = element_at(devices, k);
        if (device == nullptr || !is_pci_device(*device)) {
            continue;
        }
        if (const DOMElement* address = first_below(*device, vm.addressTag)) {
            take_address(vm, *address, taker);
        }
    }
    return Outcome::kRead;
}

// An attribute of the first element of a name below an interface; the fallback when there is no
// such element, an empty text when it lacks the attribute.
class ChildAttribute {
public:
    ChildAttribute(
        const DOMElement& interface, const XMLCh* element, const XMLCh* attribute,
        const XMLCh* fallback = u"")
        : text_(value(first_below(interface, element), attribute, fallback)) {}

    [[nodiscard]] const char* c_str() const { return text_.c_str(); }

private:
    static const XMLCh* value(
        const DOMElement* child, const XMLCh* attribute, const XMLCh* fallback) {
        return child == nullptr ? fallback : child->getAttribute(attribute);
    }

    LocalText text_;
};

void take_interface(
    const VMUtils& vm, const DOMElement& interface, XMLSize_t k, InterfaceTaker& taker) {
    const LocalText type(interface.getAttribute(u"type"));
    const ChildAttribute mac(interface, u"mac", u"address");
    const ChildAttribute bridge(interface, vm.sourceTag, u"bridge");
    const ChildAttribute target_device(interface, u"target", u"dev");
    const ChildAttribute model(interface, u"model", u"type", u"N/A");
    const ChildAttribute alias(interface, u"alias", u"name");
    taker.take(
        k, {type.c_str(), mac.c_str(), bridge.c_str(), target_device.c_str(), model.c_str(),
            alias.c_str()});
}

Outcome take_interfaces(const VMUtils& vm, const DOMElement& root, InterfaceTaker& taker) {
    const xercesc::DOMNodeList& interfaces = *root.getElementsByTagName(u"interface");
    const XMLSize_t count = interfaces.getLength();
    if (!taker.begin(count)) {
        return Outcome::kRead;
    }
    for (XMLSize_t k = 0; k < count; ++k) {
        if (const DOMElement* interface = element_at(interfaces, k)) {
            take_interface(vm, *interface, k, taker);
        }
    }
    return Outcome::kRead;
}

// What `take_all` makes of the root element of a file.
template <class Taker>
Outcome read_file(
    VMUtils& vm, const char* path, Taker& taker,
    Outcome (*take_all)(const VMUtils&, const DOMElement&, Taker&)) try {
    // The names are missing from an object that was made while Xerces could not be loaded.
    xercesc::DOMDocument* const document =
        vm.domainTag == nullptr ? nullptr : document_of(vm, path);
    if (document == nullptr) {
        return Outcome::kNoDocument;
    }
    const DOMElement* const root = document->getDocumentElement();
    return root == nullptr ? Outcome::kNoRoot : take_all(vm, *root, taker);
} catch (const xercesc::XMLException& error) {
    print_parse_error(error.getMessage());
    return Outcome::kParserError;
} catch (const xercesc::DOMException& error) {
    print_parse_error(error.getMessage());
    return Outcome::kParserError;
}

class XercesDocuments : public Documents {
public:
    void set_up(VMUtils& vm) const override {
        try {
            xercesc::XMLPlatformUtils::Initialize();
        } catch (const xercesc::XMLException& error) {
            const LocalText message(error.getMessage());
            std::printf("XML toolkit initialization error: %s\n", message.c_str());
        }
        vm.domainTag = XMLString::transcode("domain");
        vm.hostdevTag = XMLString::transcode("hostdev");
        vm.sourceTag = XMLString::transcode("source");
        vm.addressTag = XMLString::transcode("address");
        vm.domainAttr = XMLString::transcode("domain");
        vm.busAttr = XMLString::transcode("bus");
        vm.slotAttr = XMLString::transcode("slot");
        vm.functionAttr = XMLString::transcode("function");
        vm.parser = reinterpret_cast<NamedParser>(new_parser());
    }

    void release(VMUtils& vm) const override {
        for (XMLCh** text :
             {&vm.domainTag, &vm.hostdevTag, &vm.sourceTag, &vm.addressTag, &vm.domainAttr,
              &vm.busAttr, &vm.slotAttr, &vm.functionAttr}) {
            XMLString::release(text);
        }
    }

    [[nodiscard]] Outcome read_devices(
        VMUtils& vm, const char* path, DeviceTaker& taker) const override {
        return read_file<DeviceTaker>(vm, path, taker, take_devices);
    }

    [[nodiscard]] Outcome read_interfaces(
        VMUtils& vm, const char* path, InterfaceTaker& taker) const override {
        return read_file<InterfaceTaker>(vm, path, taker, take_interfaces);
    }
};

}  // namespace

}  // namespace kx::machines

const kx::machines::Documents* kx_machine_documents() {
    static constexpr kx::machines::XercesDocuments kDocuments{};
    return &kDocuments;
}
