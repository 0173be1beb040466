// Network interfaces of domains on bridges of the host.
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "vm/allocator.hpp"
#include "vm/fake_host.hpp"

namespace {

using test::FakeDomain;
using test::host;
using test::in_fresh_process;
using test::printed;
using test::Ran;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";

// A text into a field, without terminator when it fills it.
template <std::size_t N>
void put(char (&field)[N], const std::string& text) {
    std::memset(field, 0, N);
    text.copy(field, N);
}

_interfaceInfo interface_info(
    const std::string& type, const std::string& bridge, const std::string& target) {
    _interfaceInfo info{};
    put(info.type, type);
    put(info.bridge, bridge);
    put(info.targetDev, target);
    return info;
}

class AttachBridge : public test::VmTest {
protected:
    static int attach(int id, std::string bridge) { return vm().attachBrdgToVM(id, bridge.data()); }
    static void answer_with(const std::string& output, int result = 0) {
        host().run = [=](const std::string&) { return Ran{result, output}; };
    }
};

TEST_F(AttachBridge, IsVirshs) {
    answer_with("Interface attached successfully\n\n");
    EXPECT_EQ(attach(12, "br0"), 0);
    EXPECT_THAT(
        host().journal,
        ElementsAre("run /usr/bin/virsh attach-interface 12 --type bridge --source br0"));
    EXPECT_EQ(host().connection_calls, 1);
}

TEST_F(AttachBridge, LogsOutputThatDoesNotSpeakOfSuccess) {
    for (const std::string& output :
         std::vector<std::string>{"error: %n no bridge 'br9'\n", "", "Success", "SUCCESS"}) {
        host().journal.clear();
        answer_with(output);
        EXPECT_EQ(attach(1, "br9"), 1);
        EXPECT_THAT(host().logged(), ElementsAre("AddBridgeToVM: " + output));
        EXPECT_EQ(host().formats.back(), "AddBridgeToVM: %s");
    }
    answer_with("unsuccessful");
    EXPECT_EQ(attach(1, "br9"), 0) << "the word anywhere";
}

TEST_F(AttachBridge, OfAFailingCommandIsSilent) {
    answer_with("Interface attached successfully", 1);
    EXPECT_EQ(attach(1, "br0"), 1);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(AttachBridge, NeedsAConnection) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(attach(1, "br0"), 1);
    EXPECT_THAT(host().journal, ElementsAre("log 2 4 AddBridgeToVM: LibVirt connection failed"));
}

TEST_F(AttachBridge, NeedsABridge) {
    EXPECT_EQ(vm().attachBrdgToVM(1, nullptr), 1);
    EXPECT_THAT(host().commands(), IsEmpty());
}

TEST_F(AttachBridge, TakesIdsOfUpToNineCharacters) {
    answer_with("success");
    EXPECT_EQ(attach(999999999, "b"), 0);
    EXPECT_EQ(attach(-99999999, "b"), 0);
    EXPECT_THAT(
        host().commands(),
        ElementsAre(
            "/usr/bin/virsh attach-interface 999999999 --type bridge --source b",
            "/usr/bin/virsh attach-interface -99999999 --type bridge --source b"));
    for (const int id : {1000000000, -100000000, INT_MAX, INT_MIN}) {
        EXPECT_EQ(attach(id, "b"), 1) << "a cut id would name another domain";
    }
    EXPECT_EQ(host().commands().size(), 2U);
}

TEST_F(AttachBridge, QuotesNamesThatTheShellWouldActOn) {
    answer_with("success");
    attach(1, "br0; reboot");
    attach(1, "");
    attach(1, std::string(5000, 'b'));
    EXPECT_THAT(
        host().commands(),
        ElementsAre(
            "/usr/bin/virsh attach-interface 1 --type bridge --source 'br0; reboot'",
            "/usr/bin/virsh attach-interface 1 --type bridge --source ''",
            "/usr/bin/virsh attach-interface 1 --type bridge --source " + std::string(5000, 'b')));
}

class AttachInterface : public test::VmTest {
protected:
    static int attach(int id, const std::string& bridge) {
        return vm().attachInterfaceToVM(id, interface_info("network", bridge, "vnet7"));
    }
};

TEST_F(AttachInterface, RunsVirshBySystemWithTheBridgeAlone) {
    EXPECT_EQ(attach(12, "br0"), 0);
    EXPECT_THAT(
        host().journal,
        ElementsAre("system /usr/bin/virsh attach-interface 12 --type bridge --source br0"));
}

TEST_F(AttachInterface, FailsWithTheCommandAndLogsNothing) {
    for (const int result : {256, -1, 1, 32512}) {
        host().system_result = result;
        EXPECT_EQ(attach(12, "br0"), 1);
    }
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(AttachInterface, WorksForAnAgentThatIgnoresItsChildren) {
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(vm().attachInterfaceToVM(1, {}), 0);
    EXPECT_EQ(std::signal(SIGCHLD, before), SIG_IGN) << "and goes on doing so";
}

TEST_F(AttachInterface, NeedsAConnectionAndLogsNothing) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(attach(12, "br0"), 1);
    EXPECT_THAT(host().journal, IsEmpty());
}

TEST_F(AttachInterface, TakesIdsOfUpToFourCharacters) {
    EXPECT_EQ(attach(9999, "b"), 0);
    EXPECT_EQ(attach(-999, "b"), 0);
    for (const int id : {10000, -1000, INT_MAX, INT_MIN}) {
        EXPECT_EQ(attach(id, "b"), 1);
    }
    EXPECT_THAT(
        host().journal,
        ElementsAre(
            "system /usr/bin/virsh attach-interface 9999 --type bridge --source b",
            "system /usr/bin/virsh attach-interface -999 --type bridge --source b"));
}

TEST_F(AttachInterface, QuotesAndBoundsTheBridge) {
    attach(1, "b$(x)");
    attach(1, "0123456789");
    EXPECT_THAT(
        host().journal,
        ElementsAre(
            "system /usr/bin/virsh attach-interface 1 --type bridge --source 'b$(x)'",
            "system /usr/bin/virsh attach-interface 1 --type bridge --source 0123456789"));
}

class Interfaces : public test::VmTest {
protected:
    Interfaces() : domain_(host().add({.name = "one", .id = 4})) {}
    ~Interfaces() override { std::free(list_); }

    int list(const std::string& description) {
        domain_.live = description;
        return list();
    }
    int list() {
        std::free(list_);
        list_ = nullptr;
        count_ = -99;
        int result = -99;
        printed_ = printed([&] { result = vm().listInterfacesForVM(4, &list_, &count_); });
        return result;
    }
    // The record of the only interface.
    const _interfaceInfo& only(const std::string& element) {
        EXPECT_EQ(list("<domain><devices>" + element + "</devices></domain>"), 0);
        EXPECT_EQ(count_, 1);
        return list_[0];
    }
    // All bytes after the type, with NUL written as a dot.
    static std::string bytes_of(const _interfaceInfo& info) {
        std::string bytes(reinterpret_cast<const char*>(&info) + 6, sizeof(_interfaceInfo) - 6);
        std::replace(bytes.begin(), bytes.end(), '\0', '.');
        return bytes;
    }
    void expect_untouched() const {
        EXPECT_EQ(list_, nullptr);
        EXPECT_EQ(count_, -99);
    }

    FakeDomain& domain_;
    _interfaceInfo* list_ = nullptr;
    int count_ = -99;
    std::string printed_;
};

const std::string kFull =
    "<interface type='bridge'><mac address='52:54:00:aB:0c:FF'/><source bridge='br0'/>"
    "<target dev='vnet0'/><model type='virtio'/><alias name='net0'/></interface>";

TEST_F(Interfaces, RecordIsLaidOutForAgentsThatIndexIt) {
    EXPECT_EQ(sizeof(_interfaceInfo), 56U);
    EXPECT_EQ(offsetof(_interfaceInfo, mac), 0U);
    EXPECT_EQ(offsetof(_interfaceInfo, type), 6U);
    EXPECT_EQ(offsetof(_interfaceInfo, bridge), 16U);
    EXPECT_EQ(offsetof(_interfaceInfo, targetDev), 26U);
    EXPECT_EQ(offsetof(_interfaceInfo, model), 36U);
    EXPECT_EQ(offsetof(_interfaceInfo, alias), 46U);
}

TEST_F(Interfaces, AreReadFromTheLiveDescription) {
    EXPECT_EQ(list("<domain>" + kFull + "</domain>"), 0);
    EXPECT_THAT(
        host().journal,
        ElementsAre("virDomainLookupByID 4", "virDomainGetXMLDesc one 0", "parse domain.xml"));
    EXPECT_EQ(domain_file(), kDeclaration + domain_.live);
    EXPECT_EQ(host().connection_calls, 1);
    EXPECT_EQ(printed_, "");
}

TEST_F(Interfaces, FillTheirFields) {
    const _interfaceInfo& info = only(kFull);
    const unsigned char mac[] = {0x52, 0x54, 0x00, 0xAB, 0x0C, 0xFF};
    EXPECT_EQ(std::memcmp(info.mac, mac, sizeof mac), 0);
    EXPECT_STREQ(info.type, "bridge");
    EXPECT_STREQ(info.bridge, "br0");
    EXPECT_STREQ(info.targetDev, "vnet0");
    EXPECT_STREQ(info.model, "virtio");
    EXPECT_STREQ(info.alias, "net0");
}

TEST_F(Interfaces, ComeInTheOrderOfTheDocumentAtAnyDepth) {
    EXPECT_EQ(
        list("<domain><interface type='a'/><x><y><interface type='b'/></y></x>"
             "<interface type='c'/></domain>"),
        0);
    ASSERT_EQ(count_, 3);
    EXPECT_STREQ(list_[0].type, "a");
    EXPECT_STREQ(list_[1].type, "b");
    EXPECT_STREQ(list_[2].type, "c");
}

TEST_F(Interfaces, WithoutAModelHaveNone) {
    EXPECT_STREQ(only("<interface type='bridge'/>").model, "N/A");
    EXPECT_STREQ(only("<interface><model/></interface>").model, "")
        << "a model without a type is not the same";
}

TEST_F(Interfaces, WithoutElementsOrAttributesHaveEmptyFields) {
    EXPECT_EQ(
        bytes_of(only("<interface/>")), std::string(30, '.') + "N/A......." + std::string(10, '.'));
    EXPECT_EQ(
        bytes_of(
            only("<interface><mac/><source network='n'/><target/><model/><alias/></interface>")),
        std::string(50, '.'));
    const unsigned char zeros[6] = {};
    EXPECT_EQ(std::memcmp(list_[0].mac, zeros, sizeof zeros), 0);
}

TEST_F(Interfaces, TakeTheFirstElementOfAKindBelowThem) {
    const _interfaceInfo& info = only(
        "<interface><deep><source bridge='first'/></deep><source bridge='second'/></interface>");
    EXPECT_STREQ(info.bridge, "first");
}

TEST_F(Interfaces, TooLongTextsRunOnIntoTheFieldsBehindAndAreOverwrittenByThem) {
    EXPECT_EQ(
        bytes_of(only("<interface type='0123456789abcdef'><source bridge='b'/></interface>")),
        "0123456789b.cdef" + std::string(14, '.') + "N/A......." + std::string(10, '.'));
    EXPECT_EQ(
        bytes_of(only("<interface><source bridge='bridge-of-15-ch'/><target dev='vnet0'/>"
                      "<model type='m'/></interface>")),
        std::string(10, '.') + "bridge-of-vnet0....." + "m........." + std::string(10, '.'));
    EXPECT_EQ(
        bytes_of(only("<interface type='exactly-10'/>")),
        "exactly-10" + std::string(20, '.') + "N/A......." + std::string(10, '.'));
}

TEST_F(Interfaces, TooLongTextsAreCutAtTheRecordsEnd) {
    const std::string huge(5000, 'x');
    EXPECT_EQ(
        list("<domain><interface><alias name='" + huge + "'/></interface><interface/></domain>"),
        0);
    EXPECT_EQ(bytes_of(list_[0]).substr(40), std::string(10, 'x'));
    EXPECT_EQ(list_[1].mac[0], 0) << "the next record is not reached";
    EXPECT_EQ(
        list(
            "<domain><interface type='" + huge + "'><mac address='" + huge + "'/><source bridge='" +
            huge + "'/><target dev='" + huge + "'/><model type='" + huge + "'/><alias name='" +
            huge + "'/></interface></domain>"),
        0);
    EXPECT_EQ(bytes_of(list_[0]), std::string(50, 'x'));
}

TEST_F(Interfaces, MacsAreReadByPlaces) {
    const auto mac_of = [this](const std::string& text) {
        const _interfaceInfo& info = only("<interface><mac address='" + text + "'/></interface>");
        std::string digits;
        for (const unsigned char byte : info.mac) {
            char pair[3];
            std::snprintf(pair, sizeof pair, "%02x", byte);
            digits += pair;
        }
        return digits;
    };
    EXPECT_EQ(mac_of("01:23:45:67:89:ab"), "0123456789ab");
    EXPECT_EQ(mac_of("01-23-45-67-89-ab-and-more"), "0123456789ab");
    EXPECT_EQ(mac_of("0g:g7:zz:67:89:ab"), "0007006789ab");
    EXPECT_EQ(mac_of("01:23:45"), "012345000000");
    EXPECT_EQ(mac_of("01:23:45:67:89:a"), "01234567890a");
    EXPECT_EQ(mac_of("f"), "0f0000000000");
    EXPECT_EQ(mac_of(""), "000000000000");
}

TEST_F(Interfaces, OfADomainWithoutAnyAreAnEmptyArray) {
    EXPECT_EQ(list("<domain/>"), 0);
    EXPECT_EQ(count_, 0);
    EXPECT_NE(list_, nullptr);
}

TEST_F(Interfaces, AreListedByTheHundreds) {
    std::string devices;
    for (int k = 0; k < 800; ++k) {
        devices += "<interface type='bridge'><target dev='vnet" + std::to_string(k) + "'/><note>" +
                   std::string(2000, 'n') + "</note></interface>";
    }
    EXPECT_EQ(list("<domain>" + devices + "</domain>"), 0);
    ASSERT_EQ(count_, 800);
    EXPECT_STREQ(list_[799].targetDev, "vnet799");
    EXPECT_STREQ(list_[799].model, "N/A");
}

TEST_F(Interfaces, NeedAConnection) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(list(), 1);
    EXPECT_THAT(host().journal, ElementsAre("log 2 4 ListInterfaces: LibVirt connection failure"));
    expect_untouched();
}

TEST_F(Interfaces, NeedADomain) {
    host().results["virDomainLookupByID"] = 0;
    EXPECT_EQ(list(), 1);
    EXPECT_THAT(host().logged(), ElementsAre("ListInterfaces: Domain not found"));
    EXPECT_EQ(domain_file(), "(none)");
    expect_untouched();
}

TEST_F(Interfaces, NeedADescription) {
    host().results["virDomainGetXMLDesc"] = 0;
    EXPECT_EQ(list(), 1);
    EXPECT_THAT(
        host().logged(), ElementsAre("ListInterfaces: Error while reading domain configuration"));
    expect_untouched();
}

TEST_F(Interfaces, NeedADocument) {
    std::filesystem::create_symlink("no/such/place", "domain.xml");
    EXPECT_EQ(list("<domain/>"), 1);
    EXPECT_THAT(
        host().logged(), ElementsAre("ListInterfaces: Error while reading domain configuration"));
    expect_untouched();
}

TEST_F(Interfaces, WithoutARootAreLoggedAndThrown) {
    domain_.live = "";
    try {
        vm().listInterfacesForVM(4, &list_, &count_);
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "empty XML document");
    }
    EXPECT_THAT(
        host().logged(), ElementsAre("ListInterfaces: Error while reading domain configuration"));
    EXPECT_EQ(host().texts_released(), 1);
    expect_untouched();
}

TEST_F(Interfaces, NeedMemory) {
    test::fail_library_allocation(1);
    EXPECT_EQ(list("<domain><interface/></domain>"), 1);
    EXPECT_THAT(host().logged(), ElementsAre("ListInterfaces: Memory allocation failure"));
    expect_untouched();
}

TEST_F(Interfaces, ParserErrorsArePrintedAndLogged) {
    host().fail_parse = true;
    EXPECT_EQ(list("<domain/>"), 1);
    EXPECT_EQ(printed_, "Error parsing file: unable to read data from file");
    EXPECT_THAT(host().logged(), ElementsAre("ListInterfaces: Error while parsing"));
    expect_untouched();
    EXPECT_EQ(
        in_fresh_process([this] { vm().listInterfacesForVM(4, &list_, &count_); }, true),
        "Error parsing file: unable to read data from file")
        << "flushed";
}

TEST_F(Interfaces, OfADocumentTypeThatIsNoNameAreAParserErrorToo) {
    EXPECT_EQ(list("<!DOCTYPE d:00.5 []><domain/>"), 1);
    EXPECT_THAT(printed_, testing::StartsWith("Error parsing file: "));
    EXPECT_THAT(host().logged(), ElementsAre("ListInterfaces: Error while parsing"));
    expect_untouched();
    EXPECT_EQ(list("<domain/>"), 0) << "the parser goes on";
}

TEST_F(Interfaces, OfAMalformedDescriptionAreThoseInFrontOfTheMistake) {
    EXPECT_EQ(list("<domain>" + kFull + "<interface type='cut"), 0);
    EXPECT_EQ(count_, 1);
    EXPECT_STREQ(list_[0].alias, "net0");
}

TEST_F(Interfaces, DoNotLoadExternalTypeDefinitions) {
    EXPECT_EQ(list("<!DOCTYPE d SYSTEM 'no-such.dtd'><d>" + kFull + "</d>"), 0);
    EXPECT_EQ(count_, 1);
}

TEST_F(Interfaces, LeaveTheFileAndTheArrayAndNothingElse) {
    host().note_texts = true;
    list("<domain>" + kFull + "</domain>");
    host().note_texts = false;
    EXPECT_EQ(test::library_blocks(), 1U);
    EXPECT_EQ(host().texts_released(), 1);
    EXPECT_NE(domain_file(), "(none)");
    EXPECT_EQ(host().counts().count("virDomainFree"), 0U);
    EXPECT_EQ(host().counts().at("release_local_text"), 6) << "all texts of the fields";
}

TEST_F(Interfaces, NeedPlaces) {
    EXPECT_EQ(vm().listInterfacesForVM(4, nullptr, &count_), 1);
    EXPECT_EQ(vm().listInterfacesForVM(4, &list_, nullptr), 1);
}

class InterfaceText : public test::VmTest {
protected:
    static _interfaceInfo full() {
        _interfaceInfo info = interface_info("network", "br0", "vnet3");
        const unsigned char mac[] = {0x52, 0x54, 0x00, 0xAB, 0x0C, 0xFF};
        std::memcpy(info.mac, mac, sizeof mac);
        put(info.model, "virtio");
        put(info.alias, "net0");
        return info;
    }
    static std::string text_of(const _interfaceInfo& info) {
        char* text = nullptr;
        EXPECT_EQ(vm().getXMLDescForInterface(info, &text), 0);
        const std::string copy = text == nullptr ? "" : text;
        std::free(text);
        return copy;
    }
};

TEST_F(InterfaceText, IsOneElementWithItsOddSource) {
    EXPECT_EQ(
        text_of(full()),
        "<interface type='bridge'><mac address='52:54:00:ab:0c:ff'/><source bridge = 'br0'>"
        "<target dev='vnet3'/><model type='virtio'/></interface>");
}

TEST_F(InterfaceText, LeavesOutAnEmptyOrDefaultModel) {
    _interfaceInfo info = full();
    const std::string without =
        "<interface type='bridge'><mac address='52:54:00:ab:0c:ff'/><source bridge = 'br0'>"
        "<target dev='vnet3'/></interface>";
    put(info.model, "");
    EXPECT_EQ(text_of(info), without);
    put(info.model, "default");
    EXPECT_EQ(text_of(info), without);
    put(info.model, "defaults");
    EXPECT_NE(text_of(info), without);
}

TEST_F(InterfaceText, NeedsAMac) {
    _interfaceInfo info = full();
    std::memset(info.mac, 0, sizeof info.mac);
    char* const before = reinterpret_cast<char*>(1);
    char* text = before;
    EXPECT_EQ(vm().getXMLDescForInterface(info, &text), 1);
    EXPECT_EQ(text, before) << "nothing is handed out";
    EXPECT_EQ(test::library_blocks(), 0U);
    for (unsigned char& byte : info.mac) {
        std::memset(info.mac, 0, sizeof info.mac);
        byte = 1;
        EXPECT_NE(text_of(info), "");
    }
}

TEST_F(InterfaceText, NeedsMemoryAndAPlace) {
    test::fail_library_allocation(1);
    char* const before = reinterpret_cast<char*>(1);
    char* text = before;
    EXPECT_EQ(vm().getXMLDescForInterface(full(), &text), 1);
    EXPECT_EQ(text, before);
    EXPECT_EQ(vm().getXMLDescForInterface(full(), nullptr), 1);
    EXPECT_EQ(test::library_blocks(), 0U);
}

TEST_F(InterfaceText, StandsInAZeroedBufferOfFiveHundredBytes) {
    char* text = nullptr;
    ASSERT_EQ(vm().getXMLDescForInterface(full(), &text), 0);
    EXPECT_EQ(test::library_blocks(), 1U);
    const std::size_t length = std::strlen(text);
    EXPECT_EQ(std::string(text + length, text + 500), std::string(500 - length, '\0'));
    std::free(text);
}

TEST_F(InterfaceText, ReadsFieldsWithoutTerminatorToTheirEnd) {
    _interfaceInfo info;
    std::memset(&info, 'x', sizeof info);
    EXPECT_EQ(
        text_of(info),
        "<interface type='bridge'><mac address='78:78:78:78:78:78'/>"
        "<source bridge = 'xxxxxxxxxx'><target dev='xxxxxxxxxx'/><model type='xxxxxxxxxx'/>"
        "</interface>");
}

const std::string kHead = "<domain>\n  <devices>\n    ";
const std::string kFirst =
    "<interface type='bridge'>\n      <source bridge='br0'/>\n      <target dev='vnet0'/>\n"
    "    </interface>";
const std::string kBetween = "\n\t ";
const std::string kSecond =
    "<interface type='bridge'>\n      <source bridge='br0'/>\n      <target dev='vnet1'/>\n"
    "    </interface>";
const std::string kTail = "\n  </devices>\n</domain>\n";

class DetachInterface : public test::VmTest {
protected:
    DetachInterface() : domain_(host().add({.name = "one", .id = 4})) {
        domain_.live = kHead + kFirst + kBetween + kSecond + kTail;
        domain_.inactive = "<domain>inactive</domain>";
    }

    static int detach(
        const std::string& type, const std::string& bridge, const std::string& target) {
        int result = -99;
        EXPECT_EQ(
            printed([&] {
                result = vm().dettachInterfaceFromVM(4, interface_info(type, bridge, target));
            }),
            "");
        return result;
    }

    FakeDomain& domain_;
};

TEST_F(DetachInterface, EditsTheLiveDescription) {
    EXPECT_EQ(detach("bridge", "br0", "vnet0"), 0);
    EXPECT_THAT(
        host().journal,
        ElementsAre("virDomainLookupByID 4", "virDomainGetXMLDesc one 0", "virDomainDefineXML"));
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + kHead + kBetween + kSecond + kTail));
    EXPECT_EQ(host().connection_calls, 2);
}

TEST_F(DetachInterface, OfTwoOnOneBridgeRemovesTheOneWithTheTarget) {
    EXPECT_EQ(detach("bridge", "br0", "vnet1"), 0);
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + kHead + kFirst + kBetween + kTail));
}

TEST_F(DetachInterface, WithEmptyTextsRemovesTheFirst) {
    EXPECT_EQ(detach("", "", ""), 0);
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + kHead + kBetween + kSecond + kTail));
}

TEST_F(DetachInterface, NeedsAllThreeTextsAnywhereInTheBlock) {
    EXPECT_EQ(detach("network", "br0", "vnet0"), 1);
    EXPECT_EQ(detach("bridge", "br1", "vnet0"), 1);
    EXPECT_EQ(detach("bridge", "br0", "vnet2"), 1);
    EXPECT_EQ(detach("source", "dev", "vnet1"), 0) << "names of attributes will do";
    domain_.live = "<d><interface><source bridge='br10'/></interface></d>";
    EXPECT_EQ(detach("", "br1", ""), 0) << "br10 holds br1";
}

TEST_F(DetachInterface, ReadsFieldsWithoutTerminatorToTheirEnd) {
    domain_.live = "<d><interface>tttttttttt bbbbbbbbbb dddddddddd</interface></d>";
    EXPECT_EQ(detach(std::string(10, 't'), std::string(10, 'b'), std::string(10, 'd')), 0);
    domain_.live = "<d><interface>tttttttttt bbbbbbbbb dddddddddd</interface></d>";
    EXPECT_EQ(detach(std::string(10, 't'), std::string(10, 'b'), std::string(10, 'd')), 1);
}

TEST_F(DetachInterface, ThatIsNotThereIsLoggedAndTheDescriptionReleased) {
    for (const std::string& description :
         {std::string("<domain/>"), std::string(), kFirst.substr(0, kFirst.size() - 1),
          "</interface>" + kFirst}) {
        domain_.live = description;
        host().journal.clear();
        EXPECT_EQ(detach("", "", ""), 1);
        EXPECT_THAT(
            host().logged(),
            ElementsAre("DeleteVNETFromVM: Requested interface does not seem to attached"));
    }
    EXPECT_THAT(host().defined, IsEmpty());
    EXPECT_EQ(host().texts_released(), 4);
}

TEST_F(DetachInterface, WithoutADescriptionIsNotThere) {
    host().results["virDomainGetXMLDesc"] = 0;
    EXPECT_EQ(detach("", "", ""), 1);
    EXPECT_THAT(
        host().logged(),
        ElementsAre("DeleteVNETFromVM: Requested interface does not seem to attached"));
}

TEST_F(DetachInterface, ReportsAFailedRedefinitionAndReleasesTheDescription) {
    host().results["virDomainDefineXML"] = 0;
    EXPECT_EQ(detach("bridge", "br0", "vnet0"), 1);
    EXPECT_THAT(host().logged(), ElementsAre("DeleteVNETFromVM: Problem while saving the changes"));
    EXPECT_EQ(host().texts_released(), 1);
}

TEST_F(DetachInterface, ReleasesTheDescriptionButNoHandle) {
    detach("bridge", "br0", "vnet0");
    EXPECT_EQ(host().texts_released(), 1);
    EXPECT_EQ(test::library_blocks(), 0U);
    EXPECT_EQ(host().counts().count("virDomainFree"), 0U);
}

TEST_F(DetachInterface, NeedsAConnection) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(detach("", "", ""), 1);
    EXPECT_THAT(
        host().journal, ElementsAre("log 2 4 DeleteVNETFromVM: libvirtd connection failure"));
}

TEST_F(DetachInterface, IsSilentWhenTheSecondConnectionFails) {
    host().refuse_connection_from = 2;
    EXPECT_EQ(detach("", "", ""), 1);
    EXPECT_THAT(host().journal, ElementsAre("virDomainLookupByID 4"));
}

TEST_F(DetachInterface, NeedsADomain) {
    host().results["virDomainLookupByID"] = 0;
    EXPECT_EQ(detach("", "", ""), 1);
    EXPECT_THAT(
        host().journal,
        ElementsAre("virDomainLookupByID 4", "log 2 4 DeleteVNETFromVM: Domain not found"));
    EXPECT_EQ(host().connection_calls, 1);
}

TEST_F(DetachInterface, FindsTheLastOfHundreds) {
    std::string devices;
    for (int k = 0; k < 600; ++k) {
        devices += "<interface><target dev='" + std::string(3000, 'w') + "'/></interface>";
    }
    domain_.live = devices + kFirst;
    EXPECT_EQ(detach("bridge", "br0", "vnet0"), 0);
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + devices));
}

}  // namespace
