#include "machines/domain_document.hpp"

#include <cstdio>
#include <utility>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include "machines/xerces_text.hpp"

namespace kx::machines {

namespace {

constexpr XMLSize_t kEntityLimit = 100;  // libvirt uses only the predefined entities

xercesc::SecurityManager& entity_limit() {
    static xercesc::SecurityManager limit;
    limit.setEntityExpansionLimit(kEntityLimit);
    return limit;
}

}  // namespace

xercesc::XercesDOMParser* new_parser() {
    return new xercesc::XercesDOMParser(
        nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
}

// A parser that ran out of memory stays busy forever. The next call creates a new parser, because
// there may be no memory for it now.
xercesc::DOMDocument* parse(xercesc::XercesDOMParser*& parser, const char* path) try {
    if (parser == nullptr) {
        parser = new_parser();
    }
    parser->resetDocumentPool();  // the documents of earlier calls
    parser->setValidationScheme(xercesc::XercesDOMParser::Val_Never);
    parser->setDoNamespaces(false);
    parser->setDoSchema(false);
    parser->setLoadExternalDTD(false);
    parser->setDisableDefaultEntityResolution(true);
    parser->setSecurityManager(&entity_limit());
    parser->parse(path);
    return parser->getDocument();
} catch (const xercesc::OutOfMemoryException&) {
    delete std::exchange(parser, nullptr);
    throw;
}

xercesc::DOMElement* element_at(const xercesc::DOMNodeList& list, XMLSize_t k) {
    xercesc::DOMNode* const node = list.item(k);
    const bool is_element =
        node != nullptr && node->getNodeType() == xercesc::DOMNode::ELEMENT_NODE;
    return is_element ? static_cast<xercesc::DOMElement*>(node) : nullptr;
}

xercesc::DOMElement* first_below(const xercesc::DOMElement& root, const XMLCh* name) {
    return element_at(*root.getElementsByTagName(name), 0);
}

void print_parse_error(const XMLCh* message) {
    std::printf("Error parsing file: %s", LocalText(message).c_str());
    std::fflush(stdout);
}

}  // namespace kx::machines
