// Two calls of Xerces that rarely fail, so that tests can make them fail, and the calls that create
// and release texts, so that tests can count them.
#include <dlfcn.h>

#include <string>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/RuntimeException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "vm/fake_host.hpp"

namespace {

// Texts that the tests look at are ASCII.
std::string ascii(const XMLCh* text) {
    std::string result;
    for (; text != nullptr && *text != 0; ++text) {
        result += static_cast<char>(*text);
    }
    return result;
}

void note_text(const char* call, const std::string& text) {
    if (test::host().note_texts) {
        test::host().journal.push_back(std::string(call) + " " + text);
    }
}

template <class Function>
Function* next_of(const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

}  // namespace

XERCES_CPP_NAMESPACE_BEGIN

XMLCh* XMLString::transcode(const char* text, MemoryManager* manager) {
    note_text("xml_text", text);
    static auto* const next = next_of<XMLCh*(const char*, MemoryManager*)>(
        "_ZN11xercesc_3_29XMLString9transcodeEPKcPNS_13MemoryManagerE");
    return next(text, manager);
}

char* XMLString::transcode(const XMLCh* text, MemoryManager* manager) {
    note_text("local_text", ascii(text));
    static auto* const next = next_of<char*(const XMLCh*, MemoryManager*)>(
        "_ZN11xercesc_3_29XMLString9transcodeEPKDsPNS_13MemoryManagerE");
    return next(text, manager);
}

void XMLString::release(XMLCh** text, MemoryManager* manager) {
    note_text("release_xml_text", ascii(*text));
    static auto* const next = next_of<void(XMLCh**, MemoryManager*)>(
        "_ZN11xercesc_3_29XMLString7releaseEPPDsPNS_13MemoryManagerE");
    next(text, manager);
}

void XMLString::release(char** text, MemoryManager* manager) {
    note_text("release_local_text", *text);
    static auto* const next = next_of<void(char**, MemoryManager*)>(
        "_ZN11xercesc_3_29XMLString7releaseEPPcPNS_13MemoryManagerE");
    next(text, manager);
}

void XMLPlatformUtils::Initialize(
    const char* locale, const char* nls_home, PanicHandler* panic_handler,
    MemoryManager* memory_manager) {
    EXPECT_EQ(locale, XMLUni::fgXercescDefaultLocale);
    EXPECT_EQ(nls_home, nullptr);
    EXPECT_EQ(panic_handler, nullptr);
    EXPECT_EQ(memory_manager, nullptr);
    test::host().journal.push_back("Initialize");
    static auto* const next =
        next_of<void(const char*, const char*, PanicHandler*, MemoryManager*)>(
            "_ZN11xercesc_3_216XMLPlatformUtils10InitializeEPKcS2_PNS_12PanicHandlerE"
            "PNS_13MemoryManagerE");
    next(locale, nls_home, panic_handler, memory_manager);
    if (test::host().fail_initialize) {
        ThrowXML(RuntimeException, XMLExcepts::File_CouldNotOpenFile);
    }
}

void AbstractDOMParser::parse(const char* path) {
    test::host().journal.push_back(std::string("parse ") + path);
    if (test::host().fail_parse) {
        ThrowXML(RuntimeException, XMLExcepts::File_CouldNotReadFromFile);
    }
    static auto* const next = next_of<void(AbstractDOMParser*, const char*)>(
        "_ZN11xercesc_3_217AbstractDOMParser5parseEPKc");
    next(this, path);
}

XERCES_CPP_NAMESPACE_END
