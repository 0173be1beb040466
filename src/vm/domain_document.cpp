#include "vm/domain_document.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <utility>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include "support/handle.hpp"
#include "vm/xerces_text.hpp"

namespace kx::vm {

namespace {

constexpr XMLSize_t kEntityLimit = 100;  // libvirt uses only the predefined entities

xercesc::SecurityManager& entity_limit() {
    static xercesc::SecurityManager limit;
    limit.setEntityExpansionLimit(kEntityLimit);
    return limit;
}

bool is_regular(const Descriptor& descriptor) {
    struct stat status {};
    return fstat(descriptor.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// The emptied kDomainFile, or nothing. Not blocking: a named pipe in its place is no reason to wait
// for a reader.
File open_domain_file() {
    constexpr mode_t kAgentsMask = 0666;
    Descriptor descriptor(
        open(kDomainFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kAgentsMask));
    if (!descriptor || !is_regular(descriptor) || ftruncate(descriptor.get(), 0) != 0) {
        return nullptr;
    }
    File file(fdopen(descriptor.get(), "w"));
    if (file) {
        static_cast<void>(descriptor.release());
    }
    return file;
}

}  // namespace

static_assert(kDeclaration.size() == 55, "line end included");

bool write_domain_file(const char* description) {
    File file = open_domain_file();
    if (!file) {
        return false;
    }
    const bool written = std::fputs(kDeclaration.data(), file.get()) != EOF &&
                         std::fputs(description, file.get()) != EOF;
    return std::fclose(file.release()) == 0 && written;
}

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

}  // namespace kx::vm
