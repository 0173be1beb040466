// A domain's description as a document of the DOM parser.
#pragma once

#include <xercesc/dom/DOM.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

namespace kx::machines {

// Parse a file. Null when it cannot be read; for a malformed file, the part before the mistake. The
// parser owns the document until its next use. When memory runs out (Xerces throws an exception),
// the parser is dropped and the next call creates a new one. Descriptions are untrusted: the parser
// reads no other files or servers, and limits the size of entities.
[[nodiscard]] xercesc::DOMDocument* parse(xercesc::XercesDOMParser*& parser, const char* path);

// A parser of the process's memory manager. Nobody deletes it.
[[nodiscard]] xercesc::XercesDOMParser* new_parser();

// Item k of a list when it is an element, otherwise null.
[[nodiscard]] xercesc::DOMElement* element_at(const xercesc::DOMNodeList& list, XMLSize_t k);

// The first element with a name below another one, in the order of the document, or null.
[[nodiscard]] xercesc::DOMElement* first_below(const xercesc::DOMElement& root, const XMLCh* name);

// Print the message of Xerces for a file that it could not parse. Xerces throws its own exceptions,
// and sometimes those of the DOM, for example for a document type with an invalid name.
void print_parse_error(const XMLCh* message);

}  // namespace kx::machines
