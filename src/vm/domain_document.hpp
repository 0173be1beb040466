// A domain's description as a document: written to a file, read back by the DOM parser.
#pragma once

#include <kxlinhw/vmutils.h>

#include <string_view>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

namespace kx::vm {

// The line in front of every description that leaves the library.
inline constexpr std::string_view kDeclaration =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";

// In the working directory; every listing overwrites it and leaves it there.
inline constexpr char kDomainFile[] = "domain.xml";

// Write a description to kDomainFile, behind the declaration. False when not all of it is there:
// the file may then hold another domain's description and must not be read. Only a regular file is
// written, and no link is followed to it.
[[nodiscard]] bool write_domain_file(const char* description);

// Parse a file. Null when it cannot be read; of a malformed one, what stands before the mistake.
// The parser owns the document until its next use; when memory runs out, which is Xerces'
// exception, it goes, and the next call makes another. Descriptions are foreign texts: neither
// other files nor servers are read for them, and entities cannot swell without limit.
[[nodiscard]] xercesc::DOMDocument* parse(xercesc::XercesDOMParser*& parser, const char* path);

// A parser of the process's memory manager. Nobody deletes it.
[[nodiscard]] xercesc::XercesDOMParser* new_parser();

// Item k of a list when it is an element, else null.
[[nodiscard]] xercesc::DOMElement* element_at(const xercesc::DOMNodeList& list, XMLSize_t k);

// The first element of a name below another one, in the order of the document, or null.
[[nodiscard]] xercesc::DOMElement* first_below(const xercesc::DOMElement& root, const XMLCh* name);

// Print what Xerces says of a file that it could not parse. Beside its own exceptions it lets those
// of the DOM through: for a document type whose name is no name, say.
void print_parse_error(const XMLCh* message);

}  // namespace kx::vm
