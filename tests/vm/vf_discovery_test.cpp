// The virtual functions of the host and of domains.
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "vm/allocator.hpp"
#include "vm/fake_host.hpp"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using test::FakeDomain;
using test::handle;
using test::host;
using test::in_fresh_process;
using test::numbered_uuid;
using test::printed;
using test::Ran;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCardCommand = R"(lspci -D | grep "Kestrix" | cut -d" " -f1)";
const std::string kFirstHostCommand = R"(lspci -Dn| grep  "4b58:48" | cut -d ' ' -f1)";
const std::string kSecondHostCommand = R"(lspci -Dn| grep -i "4b58:a007" | cut -d ' ' -f1)";
const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";

struct Address {
    const char* domain;
    const char* bus;
    const char* slot;
    const char* function;
};

// A host device as libvirt writes it.
std::string hostdev(const Address& address) {
    return std::string("<hostdev mode='subsystem' type='pci' managed='yes'><source><address ") +
           "domain='" + address.domain + "' bus='" + address.bus + "' slot='" + address.slot +
           "' function='" + address.function + "'/></source></hostdev>";
}

std::string domain_with(const std::string& devices) {
    return "<domain type='kvm'><devices>" + devices + "</devices></domain>";
}

// Texts of addresses of other makers stay allocated by contract: no leak for the checker.
class ByContract {
public:
#if defined(__SANITIZE_ADDRESS__)
    ByContract() { __lsan_disable(); }
    ~ByContract() { __lsan_enable(); }
#else
    ByContract() {}
#endif
    ByContract(const ByContract&) = delete;
    ByContract& operator=(const ByContract&) = delete;
};

class VfDiscovery : public test::VmTest {
protected:
    static void answer_lspci_with(const std::string& output, int result = 0) {
        host().run = [=](const std::string&) { return Ran{result, output}; };
    }

    static std::vector<std::pair<int, int>> cards() {
        std::vector<std::pair<int, int>> cards;
        const KxCardBus* card = vm().getCardsInfo();
        for (; card != nullptr; card = card->next) {
            cards.emplace_back(card->pciDomain, card->bus);
        }
        return cards;
    }

    static std::vector<std::pair<int, int>> cards_of(const std::string& output) {
        answer_lspci_with(output);
        return cards();
    }
};

std::vector<std::string> as_texts(const _VF* vfs, int count) {
    std::vector<std::string> texts;
    for (int k = 0; k < count; ++k) {
        texts.push_back(
            std::to_string(vfs[k].pciDomain) + ":" + std::to_string(vfs[k].bus) + ":" +
            std::to_string(vfs[k].slot) + "." + std::to_string(vfs[k].function));
    }
    return texts;
}

using Pairs = std::vector<std::pair<int, int>>;

TEST_F(VfDiscovery, RecordsAreLaidOutForAgentsThatIndexThem) {
    EXPECT_EQ(sizeof(_VF), 16U);
    EXPECT_EQ(offsetof(_VF, pciDomain), 0U);
    EXPECT_EQ(offsetof(_VF, bus), 4U);
    EXPECT_EQ(offsetof(_VF, slot), 8U);
    EXPECT_EQ(offsetof(_VF, function), 12U);
    EXPECT_EQ(offsetof(KxCardBus, pciDomain), 0U);
    EXPECT_EQ(offsetof(KxCardBus, bus), 4U);
    EXPECT_EQ(offsetof(KxCardBus, next), 8U);
    EXPECT_EQ(offsetof(KxVFNode, next), 16U);
}

class CardBuses : public VfDiscovery {};

TEST_F(CardBuses, ComeFromOneRunOfLspci) {
    EXPECT_THAT(cards(), IsEmpty());
    EXPECT_THAT(host().journal, ElementsAre("run " + kCardCommand));
}

TEST_F(CardBuses, AreOneForEachRunOfFunctionsOnABus) {
    EXPECT_EQ(cards_of("0000:03:00.0\n0000:03:00.4\n0000:03:01.0\n"), (Pairs{{0, 3}}));
    EXPECT_EQ(
        cards_of("0000:03:00.0\n0000:04:00.0\n0001:04:00.0\n"), (Pairs{{0, 3}, {0, 4}, {1, 4}}));
    EXPECT_EQ(
        cards_of("0000:03:00.0\n0000:04:00.0\n0000:03:00.1\n"), (Pairs{{0, 3}, {0, 4}, {0, 3}}))
        << "a bus that comes again counts again";
}

TEST_F(CardBuses, AreReadAsDecimalNumbersButToldApartAsTexts) {
    EXPECT_EQ(cards_of("0000:0a:00.0\n0000:0b:00.0\n"), (Pairs{{0, 0}, {0, 0}}));
    EXPECT_EQ(cards_of("0000:10:00.0\n0010:1f:00.0\n"), (Pairs{{0, 10}, {10, 1}}));
    EXPECT_EQ(cards_of("0000:03:00.0\n000:03:00.0\n"), (Pairs{{0, 3}, {0, 3}}));
}

TEST_F(CardBuses, AreNoneWhenLspciFailsWhateverItPrinted) {
    answer_lspci_with("0000:03:00.0\n", 1);
    EXPECT_EQ(vm().getCardsInfo(), nullptr);
}

TEST_F(CardBuses, NeedDomainAndBusOfALine) {
    EXPECT_EQ(cards_of("0000"), Pairs{});
    EXPECT_EQ(cards_of("0000:03:00.0\n0001"), (Pairs{{0, 3}}));
    EXPECT_EQ(cards_of("0000:03:00.0\n0001:05"), (Pairs{{0, 3}, {1, 5}}));
    EXPECT_EQ(cards_of(":::...\n\n"), Pairs{});
    EXPECT_EQ(cards_of(""), Pairs{});
    EXPECT_EQ(cards_of("03:00.0\n04:00.0\n"), (Pairs{{3, 0}, {0, 0}}))
        << "words are counted in fours, whatever the lines";
}

TEST_F(CardBuses, StopGrowingWhenMemoryIsShort) {
    answer_lspci_with("0000:03:00.0\n0000:04:00.0\n0000:05:00.0\n");
    test::fail_library_allocation(2);
    EXPECT_EQ(cards(), (Pairs{{0, 3}, {0, 5}}));
}

TEST_F(CardBuses, AreTakenFromThousandsOfLines) {
    std::string output;
    for (int k = 0; k < 5000; ++k) {
        output += std::to_string(k) + ":" + std::string(2000, '0') + "1:00.0\n";
    }
    EXPECT_EQ(cards_of(output).size(), 5000U);
}

class DomainVfs : public VfDiscovery {
protected:
    DomainVfs() { answer_lspci_with("0000:03:00.0\n0000:10:00.0\n0002:07:00.0\n"); }

    // The VFs of a file's content.
    static std::vector<std::string> vfs_of(const std::string& content) {
        write_domain_file(content);
        std::vector<std::string> texts;
        printed_ = printed([&] {
            char path[] = "domain.xml";
            const KxVFNode* node = vm().getVFsFromDomainInfo(path);
            for (; node != nullptr; node = node->next) {
                texts.push_back(as_texts(&node->vf, 1)[0]);
            }
        });
        return texts;
    }

    static inline std::string printed_;
};

TEST_F(DomainVfs, AreTheMakersPciDevicesInOrder) {
    EXPECT_THAT(
        vfs_of(domain_with(
            hostdev({"0x0000", "0x03", "0x01", "0x2"}) +
            hostdev({"0x0002", "0x07", "0x1f", "0x7"}))),
        ElementsAre("0:3:1.2", "2:7:31.7"));
    EXPECT_EQ(printed_, "\n 3:1.2\n\n 7:31.7\n\n 3:1.2\n\n 7:31.7\n") << "each one twice";
}

TEST_F(DomainVfs, AreReadInHexadecimalBesideDecimalBuses) {
    EXPECT_THAT(
        vfs_of(domain_with(hostdev({"0x0000", "0x0a", "0x00", "0x1"}))), ElementsAre("0:10:0.1"))
        << "the card that lspci prints as 10 is ten here";
    const ByContract contract;
    EXPECT_THAT(vfs_of(domain_with(hostdev({"0x0000", "0x10", "0x00", "0x1"}))), IsEmpty());
}

TEST_F(DomainVfs, NumbersNeedNoPrefix) {
    EXPECT_THAT(vfs_of(domain_with(hostdev({"0", "3", "1f", "7"}))), ElementsAre("0:3:31.7"));
}

TEST_F(DomainVfs, OfOtherMakersAreNotListed) {
    const ByContract contract;
    EXPECT_THAT(
        vfs_of(domain_with(
            hostdev({"0x0000", "0x05", "0x00", "0x1"}) +
            hostdev({"0x0001", "0x03", "0x00", "0x1"}))),
        IsEmpty());
    EXPECT_EQ(printed_, "");
}

TEST_F(DomainVfs, NeedModeAndTypeOfPciDevices) {
    const std::string source =
        "<source><address domain='0' bus='3' slot='0' function='1'/></source></hostdev>";
    for (const char* head :
         {"<hostdev>", "<hostdev mode='subsystem'>", "<hostdev type='pci'>",
          "<hostdev mode='subsystem' type='usb'>", "<hostdev mode='capabilities' type='pci'>",
          "<hostdev mode='Subsystem' type='pci'>", "<hostdev mode='' type='pci'>",
          "<hostdev mode='subsystem' type='pci '>", "<hostdev Mode='subsystem' type='pci'>"}) {
        EXPECT_THAT(vfs_of(domain_with(head + source)), IsEmpty()) << head;
    }
    EXPECT_THAT(
        vfs_of(domain_with("<hostdev mode='subsystem' type='pci'>" + source)),
        ElementsAre("0:3:0.1"));
}

TEST_F(DomainVfs, WithoutAnAddressAreSkipped) {
    EXPECT_THAT(
        vfs_of(domain_with(
            "<hostdev mode='subsystem' type='pci'><source/></hostdev>" +
            hostdev({"0", "3", "0", "1"}))),
        ElementsAre("0:3:0.1"));
}

TEST_F(DomainVfs, AttributesThatAreMissingOrNoNumberCountAsZero) {
    answer_lspci_with("0000:00:00.0\n");
    const std::string head = "<hostdev mode='subsystem' type='pci'><address ";
    EXPECT_THAT(vfs_of(domain_with(head + "/></hostdev>")), ElementsAre("0:0:0.0"));
    EXPECT_THAT(
        vfs_of(domain_with(head + "domain='x' bus='zz' slot='' function='0x'/></hostdev>")),
        ElementsAre("0:0:0.0"));
}

TEST_F(DomainVfs, TakeTheFirstAddressInTheOrderOfTheDocument) {
    EXPECT_THAT(
        vfs_of(domain_with("<hostdev mode='subsystem' type='pci'><source><deeper>"
                           "<address domain='0' bus='3' slot='1' function='1'/></deeper></source>"
                           "<address domain='0' bus='3' slot='2' function='2'/></hostdev>")),
        ElementsAre("0:3:1.1"));
}

TEST_F(DomainVfs, AreFoundAtAnyDepthBelowTheRoot) {
    EXPECT_THAT(
        vfs_of("<a><b><c><d>" + hostdev({"0", "3", "0", "1"}) + "</d></c></b></a>"),
        ElementsAre("0:3:0.1"));
    EXPECT_THAT(vfs_of(hostdev({"0", "3", "0", "1"})), IsEmpty()) << "the root itself is none";
}

TEST_F(DomainVfs, AskLspciOnceEvenWithoutAnyDevice) {
    vfs_of(domain_with(""));
    EXPECT_THAT(host().commands(), ElementsAre(kCardCommand));
    host().journal.clear();
    vfs_of(domain_with(hostdev({"0", "3", "0", "1"}) + hostdev({"0", "3", "0", "2"})));
    EXPECT_THAT(host().commands(), ElementsAre(kCardCommand));
}

TEST_F(DomainVfs, OfNoDocumentAreNoneAndLspciIsNotAsked) {
    std::filesystem::remove("domain.xml");
    char missing[] = "no/such/file.xml";
    for (char* path : {missing, static_cast<char*>(nullptr)}) {
        EXPECT_EQ(
            printed([&] { EXPECT_EQ(vm().getVFsFromDomainInfo(path), nullptr); }),
            "some thing went wrong in getting document node\n");
    }
    EXPECT_THAT(host().commands(), IsEmpty());
}

TEST_F(DomainVfs, OfAnEarlierDocumentDoNotComeBack) {
    vfs_of(domain_with(hostdev({"0", "3", "0", "1"})));
    char missing[] = "missing.xml";
    printed([&] { EXPECT_EQ(vm().getVFsFromDomainInfo(missing), nullptr); });
}

TEST_F(DomainVfs, OfADocumentWithoutARootAreAnError) {
    for (const char* content : {"", "\n", "<?xml version=\"1.0\"?>\n", "no xml", "<!-- -->", "<"}) {
        try {
            vfs_of(content);
            ADD_FAILURE() << content;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "empty XML document");
            testing::internal::GetCapturedStdout();
        }
    }
    EXPECT_THAT(host().commands(), IsEmpty());
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(DomainVfs, OfAMalformedDocumentAreThoseInFrontOfTheMistake) {
    const std::string first = hostdev({"0", "3", "0", "1"});
    EXPECT_THAT(vfs_of("<domain>" + first + "<hostdev mode='sub"), ElementsAre("0:3:0.1"));
    EXPECT_THAT(
        vfs_of("<domain>" + first + "</other>" + first + "</domain>"), ElementsAre("0:3:0.1"));
    EXPECT_THAT(vfs_of("<domain>" + first + "&nothing;" + first), ElementsAre("0:3:0.1"));
}

TEST_F(DomainVfs, AreNotReadFromOtherFilesOrSwollenEntities) {
    const std::string vf = hostdev({"0", "3", "0", "1"});
    test::VmTest::write_domain_file("");
    std::filesystem::copy_file("domain.xml", "empty.dtd");
    EXPECT_THAT(
        vfs_of("<!DOCTYPE d SYSTEM 'no-such.dtd'><d>" + vf + "</d>"), ElementsAre("0:3:0.1"))
        << "an external type definition is not loaded";

    write_domain_file(vf);
    std::filesystem::rename("domain.xml", "other.xml");
    EXPECT_THAT(
        vfs_of("<!DOCTYPE d [<!ENTITY other SYSTEM 'other.xml'>]><d>&other;</d>"), IsEmpty());

    std::string entities = "<!ENTITY e0 \"" + vf + "\">";
    for (int k = 1; k < 12; ++k) {
        const std::string reference = "&e" + std::to_string(k - 1) + ";";
        entities += "<!ENTITY e" + std::to_string(k) + " \"";
        for (int n = 0; n < 10; ++n) {
            entities += reference;
        }
        entities += "\">";
    }
    EXPECT_LT(vfs_of("<!DOCTYPE d [" + entities + "]><d>&e11;</d>").size(), 100000U);
}

TEST_F(DomainVfs, AreReadByOneParserFromFirstToLast) {
    const auto* const parser = vm().parser;
    EXPECT_EQ(vfs_of("<domain/>").size(), 0U);
    EXPECT_EQ(vm().parser, parser);
}

TEST_F(DomainVfs, DocumentTypeThatIsNoNameIsAParserErrorToo) {
    write_domain_file("<!DOCTYPE d:00.5 []><domain/>");
    EXPECT_THAT(
        printed([] {
            char path[] = "domain.xml";
            EXPECT_EQ(vm().getVFsFromDomainInfo(path), nullptr);
        }),
        testing::StartsWith("Error parsing file: "));
    write_domain_file("<domain/>");
    EXPECT_EQ(
        printed([] {
            char path[] = "domain.xml";
            EXPECT_EQ(vm().getVFsFromDomainInfo(path), nullptr);
        }),
        "")
        << "the parser goes on";
}

TEST_F(DomainVfs, ParserErrorsArePrintedWithoutLineEndAndFlushed) {
    host().fail_parse = true;
    EXPECT_EQ(
        printed([] {
            char path[] = "domain.xml";
            EXPECT_EQ(vm().getVFsFromDomainInfo(path), nullptr);
        }),
        "Error parsing file: unable to read data from file");
    const std::string flushed = in_fresh_process(
        [] {
            char path[] = "domain.xml";
            vm().getVFsFromDomainInfo(path);
        },
        true);
    EXPECT_EQ(flushed, "Error parsing file: unable to read data from file");
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(DomainVfs, KeepTheTextsOfOtherMakersAddressesAndNoOthers) {
    write_domain_file(domain_with(
        hostdev({"0x0000", "0x03", "0x01", "0x2"}) + hostdev({"0x0000", "0x55", "0x01", "0x2"}) +
        "<hostdev mode='subsystem' type='usb'><source/></hostdev>"));
    const ByContract contract;
    host().note_texts = true;
    printed([] {
        char path[] = "domain.xml";
        vm().getVFsFromDomainInfo(path);
    });
    host().note_texts = false;
    auto& journal = host().journal;
    journal.erase(
        journal.begin(), std::find(journal.begin(), journal.end(), "run " + kCardCommand) + 1);
    EXPECT_THAT(
        journal, testing::UnorderedElementsAre(
                     "local_text 0x0000", "local_text 0x03", "local_text 0x01", "local_text 0x2",
                     "release_local_text 0x0000", "release_local_text 0x03",
                     "release_local_text 0x01", "release_local_text 0x2", "local_text 0x0000",
                     "local_text 0x55", "local_text 0x01", "local_text 0x2"));
}

TEST_F(DomainVfs, LeaveCardListAndVfListBehind) {
    vfs_of(domain_with(hostdev({"0", "3", "0", "1"})));
    EXPECT_EQ(test::library_blocks(), 3U + 1U) << "three cards, one VF";
}

TEST_F(DomainVfs, StopGrowingWhenMemoryIsShort) {
    test::fail_library_allocation(4);  // three cards come first
    EXPECT_THAT(
        vfs_of(domain_with(hostdev({"0", "3", "0", "1"}) + hostdev({"0", "3", "0", "2"}))),
        ElementsAre("0:3:0.2"));
}

class ListVFs : public DomainVfs {
protected:
    ListVFs() {
        host().add({.name = "one", .id = 4, .uuid = numbered_uuid(1)});
        host().domains[0].live = domain_with(
            hostdev({"0x0000", "0x03", "0x01", "0x2"}) +
            hostdev({"0x0002", "0x07", "0x02", "0x3"}));
    }
    ~ListVFs() override { std::free(vfs_); }

    int list(virDomainPtr domain) {
        int result = -99;
        _VF** place = &vfs_;
        printed_ = printed([&] { result = vm().listVFsForVM(domain, place); });
        EXPECT_EQ(place, &vfs_);
        return result;
    }
    int list(int id) {
        int result = -99;
        printed_ = printed([&] { result = vm().listVFsForVM(id, &vfs_); });
        return result;
    }

    _VF* vfs_ = nullptr;
};

TEST_F(ListVFs, WritesTheDescriptionAndGivesItsVfs) {
    EXPECT_EQ(list(handle(host().domains[0])), 0);
    EXPECT_THAT(as_texts(vfs_, 2), ElementsAre("0:3:1.2", "2:7:2.3"));
    EXPECT_EQ(domain_file(), kDeclaration + host().domains[0].live);
    EXPECT_THAT(
        host().journal,
        ElementsAre("virDomainGetXMLDesc one 0", "parse domain.xml", "run " + kCardCommand));
    EXPECT_EQ(host().connection_calls, 0);
    const std::string both = "\n 3:1.2\n\n 7:2.3\n";
    EXPECT_EQ(printed_, both + both + "The number of VFS 2" + both);
}

TEST_F(ListVFs, FlushesTheNumber) {
    const std::string flushed = in_fresh_process(
        [this] {
            _VF** place = &vfs_;
            vm().listVFsForVM(handle(host().domains[0]), place);
        },
        true);
    const std::string both = "\n 3:1.2\n\n 7:2.3\n";
    EXPECT_EQ(flushed, both + both + "The number of VFS 2");
}

TEST_F(ListVFs, WithoutDevicesAreAZeroLengthArray) {
    host().domains[0].live = domain_with("");
    EXPECT_EQ(list(handle(host().domains[0])), 0);
    EXPECT_NE(vfs_, nullptr);
    EXPECT_EQ(printed_, "The number of VFS 0");
}

TEST_F(ListVFs, NeedADomain) {
    EXPECT_EQ(list(static_cast<virDomainPtr>(nullptr)), -1);
    EXPECT_THAT(host().journal, ElementsAre("log 2 4 ListVFsForVM: Invalid VMID"));
    EXPECT_EQ(vfs_, nullptr);
}

TEST_F(ListVFs, NeedADescription) {
    host().results["virDomainGetXMLDesc"] = 0;
    EXPECT_EQ(list(handle(host().domains[0])), -1);
    EXPECT_EQ(vfs_, nullptr);
}

TEST_F(ListVFs, NeedAPlace) {
    _VF** nowhere = nullptr;
    EXPECT_EQ(vm().listVFsForVM(handle(host().domains[0]), nowhere), -1);
    EXPECT_EQ(vm().listVFsForVM(4, nullptr), -1);
    EXPECT_EQ(vm().listVFsForVM(0, nullptr), -1);
}

TEST_F(ListVFs, NeedMemoryForTheArray) {
    test::fail_library_allocation(3 + 2 + 1);  // cards, list, array
    EXPECT_EQ(list(handle(host().domains[0])), -1);
    EXPECT_EQ(vfs_, nullptr);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(ListVFs, LeaveDescriptionFileAndListBehindButNoHandle) {
    list(handle(host().domains[0]));
    EXPECT_EQ(host().texts_released(), 0);
    EXPECT_NE(domain_file(), "(none)");
    EXPECT_EQ(test::library_blocks(), 3U + 2U + 1U) << "cards, list, array";
    EXPECT_EQ(host().counts().count("virDomainFree"), 0U);
}

TEST_F(ListVFs, OverwriteAnOlderFile) {
    write_domain_file(std::string(100000, 'x'));
    list(handle(host().domains[0]));
    EXPECT_EQ(domain_file(), kDeclaration + host().domains[0].live);
}

TEST_F(ListVFs, DescriptionIsWrittenAsItIs) {
    host().domains[0].live = "<domain><title>100%n %s %%</title></domain>\n";
    list(handle(host().domains[0]));
    EXPECT_EQ(domain_file(), kDeclaration + host().domains[0].live);
}

TEST_F(ListVFs, AFileThatCannotBeWrittenGivesNoDocument) {
    std::filesystem::create_symlink("no/such/place", "domain.xml");
    EXPECT_EQ(list(handle(host().domains[0])), 0);
    EXPECT_EQ(printed_, "some thing went wrong in getting document node\nThe number of VFS 0");
    EXPECT_NE(vfs_, nullptr);
    EXPECT_THAT(host().commands(), IsEmpty());
}

TEST_F(ListVFs, AnEmptyDescriptionIsAnError) {
    host().domains[0].live = "";
    _VF** place = &vfs_;
    EXPECT_THROW(vm().listVFsForVM(handle(host().domains[0]), place), std::runtime_error);
    EXPECT_EQ(vfs_, nullptr);
}

TEST_F(ListVFs, ByUuidPrintTheTextAndLookTheDomainUp) {
    std::string text = test::digits(numbered_uuid(1));
    int result = -99;
    const std::string output = printed([&] { result = vm().listVFsForVM(text.data(), &vfs_); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(output.substr(0, 33), text + "\n");
    EXPECT_THAT(as_texts(vfs_, 2), ElementsAre("0:3:1.2", "2:7:2.3"));
    EXPECT_EQ(host().journal.at(0), "virDomainLookupByUUID " + text);
    EXPECT_EQ(host().journal.at(1), "virDomainGetXMLDesc one 0");
}

TEST_F(ListVFs, ByUuidOfNoDomainAreInvalid) {
    std::string text = "%n";
    EXPECT_EQ(printed([&] { EXPECT_EQ(vm().listVFsForVM(text.data(), &vfs_), -1); }), "%n\n");
    char* const null = nullptr;
    printed([&] { EXPECT_EQ(vm().listVFsForVM(null, &vfs_), -1); });
    host().refuse_connection_from = 1;
    printed([&] { EXPECT_EQ(vm().listVFsForVM(text.data(), &vfs_), -1); });
    EXPECT_THAT(
        host().logged(), ElementsAre(
                             "ListVFsForVM: Invalid VMID", "ListVFsForVM: Invalid VMID",
                             "ListVFsForVM: Invalid VMID"));
}

TEST_F(ListVFs, ByIdLookTheDomainUp) {
    EXPECT_EQ(list(4), 0) << "not the number";
    EXPECT_THAT(as_texts(vfs_, 2), ElementsAre("0:3:1.2", "2:7:2.3"));
    EXPECT_EQ(host().journal.at(0), "virDomainLookupByID 4");
    EXPECT_EQ(host().connection_calls, 1);
}

TEST_F(ListVFs, ByIdOfNoDomainAreInvalid) {
    EXPECT_EQ(list(9), -1);
    EXPECT_EQ(list(-1), -1);
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "virDomainLookupByID 9", "log 2 4 ListVFsForVM: Invalid VMID",
                            "virDomainLookupByID -1", "log 2 4 ListVFsForVM: Invalid VMID"));
}

TEST_F(ListVFs, ByIdNeedAConnectionEvenForTheHost) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(list(4), -1);
    EXPECT_EQ(list(0), -1);
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "log 2 4 ListVFsForVM: LibVirtConnection Failed",
                            "log 2 4 ListVFsForVM: LibVirtConnection Failed"));
}

class HostVfs : public ListVFs {
protected:
    static void answer_with(const Ran& first, const Ran& second) {
        host().run = [=](const std::string& command) {
            return command == kFirstHostCommand ? first : second;
        };
    }
};

TEST_F(HostVfs, ComeFromTwoCommands) {
    answer_with({0, ""}, {0, ""});
    EXPECT_EQ(list(0), 0);
    EXPECT_THAT(
        host().journal, ElementsAre("run " + kFirstHostCommand, "run " + kSecondHostCommand));
    EXPECT_NE(vfs_, nullptr) << "no VF is a success with an array of none";
    EXPECT_EQ(printed_, "");
}

TEST_F(HostVfs, OfTheFirstFamilyStandInFrontOfTheSecond) {
    answer_with({0, "0000:03:01.0\n0000:03:01.4\n"}, {0, "0001:05:02.1\n"});
    EXPECT_EQ(list(0), 3);
    EXPECT_THAT(as_texts(vfs_, 3), ElementsAre("0:3:1.0", "0:3:1.4", "1:5:2.1"));
}

TEST_F(HostVfs, AreReadAsDecimalNumbersUpToTheFirstLetter) {
    answer_with({0, "0000:0a:01.0\n0000:10:1f.3\n0000:10:10.3\nnonsense\n"}, {0, ""});
    EXPECT_EQ(list(0), 4);
    EXPECT_THAT(as_texts(vfs_, 4), ElementsAre("0:0:0.0", "0:10:1.0", "0:10:10.3", "0:0:0.0"));
}

TEST_F(HostVfs, OfOneFailingCommandDoNotCount) {
    answer_with({1, "0000:01:01.0\n"}, {0, "0000:02:01.0\n"});
    EXPECT_EQ(list(0), 1);
    EXPECT_THAT(as_texts(vfs_, 1), ElementsAre("0:2:1.0"));
    std::free(vfs_);
    answer_with({0, "0000:01:01.0\n"}, {1, "0000:02:01.0\n"});
    EXPECT_EQ(list(0), 1);
    EXPECT_THAT(as_texts(vfs_, 1), ElementsAre("0:1:1.0"));
}

TEST_F(HostVfs, OfTwoFailingCommandsAreAFailure) {
    answer_with({1, "0000:01:01.0\n"}, {-1, "0000:02:01.0\n"});
    EXPECT_EQ(list(0), 1);
    EXPECT_EQ(vfs_, nullptr);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(HostVfs, EmptyLinesAreNone) {
    answer_with({0, "\n\n0000:01:01.0\n\n"}, {0, "\n"});
    EXPECT_EQ(list(0), 1);
}

TEST_F(HostVfs, NeedMemory) {
    answer_with({0, "0000:01:01.0\n"}, {0, ""});
    test::fail_library_allocation(1);
    EXPECT_EQ(list(0), -1);
    EXPECT_THAT(host().logged(), ElementsAre("ListVFsForVM: No VFs found"));
}

TEST_F(HostVfs, AreTakenFromThousandsOfLongLines) {
    std::string output;
    for (int k = 0; k < 3000; ++k) {
        output += "0:" + std::string(3000, '0') + "7:1.2\n";
    }
    answer_with({0, output}, {0, ""});
    EXPECT_EQ(list(0), 3000);
    EXPECT_THAT(as_texts(vfs_ + 2999, 1), ElementsAre("0:7:1.2"));
}

}  // namespace
