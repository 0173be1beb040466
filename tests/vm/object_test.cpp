// The object itself: its members, construction and destruction.
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include "vm/fake_host.hpp"

namespace {

using test::host;
using test::printed;
using testing::ElementsAre;
using xercesc::XMLString;

// An object that also frees its parser, which the class leaves to the agent.
class ObjectWithItsParser {
public:
    ~ObjectWithItsParser() { delete object_.parser; }
    VMUtils* operator->() { return &object_; }

private:
    VMUtils object_;
};

class Object : public test::VmTest {};

TEST_F(Object, HoldsEightNamesAndAParserInTheirOrder) {
    EXPECT_EQ(sizeof(VMUtils), 72U);
    EXPECT_EQ(offsetof(VMUtils, domainTag), 0U);
    EXPECT_EQ(offsetof(VMUtils, hostdevTag), 8U);
    EXPECT_EQ(offsetof(VMUtils, sourceTag), 16U);
    EXPECT_EQ(offsetof(VMUtils, addressTag), 24U);
    EXPECT_EQ(offsetof(VMUtils, domainAttr), 32U);
    EXPECT_EQ(offsetof(VMUtils, busAttr), 40U);
    EXPECT_EQ(offsetof(VMUtils, slotAttr), 48U);
    EXPECT_EQ(offsetof(VMUtils, functionAttr), 56U);
    EXPECT_EQ(offsetof(VMUtils, parser), 64U);

    ObjectWithItsParser object;
    EXPECT_TRUE(XMLString::equals(object->domainTag, u"domain"));
    EXPECT_TRUE(XMLString::equals(object->hostdevTag, u"hostdev"));
    EXPECT_TRUE(XMLString::equals(object->sourceTag, u"source"));
    EXPECT_TRUE(XMLString::equals(object->addressTag, u"address"));
    EXPECT_TRUE(XMLString::equals(object->domainAttr, u"domain"));
    EXPECT_TRUE(XMLString::equals(object->busAttr, u"bus"));
    EXPECT_TRUE(XMLString::equals(object->slotAttr, u"slot"));
    EXPECT_TRUE(XMLString::equals(object->functionAttr, u"function"));
    EXPECT_NE(object->parser, nullptr);
}

// It owns its names: a copy would release them a second time.
TEST_F(Object, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<VMUtils>);
    EXPECT_FALSE(std::is_copy_assignable_v<VMUtils>);
    EXPECT_FALSE(std::is_move_constructible_v<VMUtils>);
    EXPECT_FALSE(std::is_move_assignable_v<VMUtils>);
    EXPECT_TRUE(std::is_default_constructible_v<VMUtils>);
}

TEST_F(Object, SetsXercesUpAndMakesItsNamesInTheirOrder) {
    host().note_texts = true;
    const ObjectWithItsParser object;
    host().note_texts = false;
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "Initialize", "xml_text domain", "xml_text hostdev", "xml_text source",
                            "xml_text address", "xml_text domain", "xml_text bus", "xml_text slot",
                            "xml_text function"));
}

TEST_F(Object, ReleasesItsNamesInTheirOrderAndLeavesParserAndXercesAlone) {
    alignas(VMUtils) unsigned char memory[sizeof(VMUtils)];
    VMUtils* const object = new (memory) VMUtils;
    xercesc::XercesDOMParser* const parser = object->parser;
    host().journal.clear();
    host().note_texts = true;
    object->~VMUtils();
    host().note_texts = false;
    EXPECT_THAT(
        host().journal,
        ElementsAre(
            "release_xml_text domain", "release_xml_text hostdev", "release_xml_text source",
            "release_xml_text address", "release_xml_text domain", "release_xml_text bus",
            "release_xml_text slot", "release_xml_text function"));
    char16_t* names[8];
    std::memcpy(names, memory, sizeof names);
    EXPECT_THAT(names, testing::Each(nullptr));

    write_domain_file("<domain/>");
    parser->parse("domain.xml");  // Xerces has not been taken down, nor the parser
    EXPECT_NE(parser->getDocument(), nullptr);
    delete parser;
}

TEST_F(Object, SurvivesAXercesThatDoesNotStart) {
    host().fail_initialize = true;
    host().note_texts = true;
    const std::string text = printed([] {
        ObjectWithItsParser object;
        host().note_texts = false;
        EXPECT_EQ(host().counts().at("local_text"), 1);
        EXPECT_EQ(host().counts().at("release_local_text"), 1);
        EXPECT_TRUE(XMLString::equals(object->functionAttr, u"function"));
        EXPECT_NE(object->parser, nullptr);
    });
    EXPECT_EQ(text.find("XML toolkit initialization error: "), 0U) << text;
    EXPECT_EQ(text.substr(34), "unable to open file '{0}'\n");
}

TEST_F(Object, SharedPointerIsTheAgents) {
    EXPECT_EQ(VMUtils::ctrl, nullptr);
    VMUtils::ctrl = &vm();
    host().add({.name = "one", .id = 1});
    _KVMInfo* records = nullptr;
    int count = 0;
    printed([&] { vm().listVMs(&records, &count); });
    std::free(records);
    EXPECT_EQ(VMUtils::ctrl, &vm());
    VMUtils::ctrl = nullptr;
}

}  // namespace
