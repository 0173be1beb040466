// Attaching virtual functions to domains and detaching them.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "vm/allocator.hpp"
#include "vm/fake_host.hpp"

namespace {

using test::FakeDomain;
using test::host;
using test::numbered_uuid;
using test::printed;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";
constexpr _VF kVf{0, 3, 0, 4};
const std::string kVfText =
    "<hostdev mode='subsystem' type='pci' managed='yes'><source><address domain='0x0000' "
    "bus='0x03' slot='0x00' function='0x4'/></source></hostdev>";

class DeviceText : public test::VmTest {
protected:
    static std::string text_of(const _VF& vf) {
        char* text = nullptr;
        EXPECT_EQ(vm().getXMLDescForVF(vf, &text), 0);
        std::string copy = text;
        std::free(text);
        return copy;
    }
};

TEST_F(DeviceText, IsOneLineOfTheFourNumbers) {
    EXPECT_EQ(text_of(kVf), kVfText);
    EXPECT_EQ(
        text_of({0x12, 0xab, 0x1f, 0x7}),
        "<hostdev mode='subsystem' type='pci' managed='yes'><source><address domain='0x0012' "
        "bus='0xab' slot='0x1f' function='0x7'/></source></hostdev>");
}

TEST_F(DeviceText, HoldsNumbersOfAnySize) {
    EXPECT_EQ(
        text_of({-1, INT_MIN, -1, INT_MAX}),
        "<hostdev mode='subsystem' type='pci' managed='yes'><source><address domain='0xffffffff' "
        "bus='0x80000000' slot='0xffffffff' function='0x7fffffff'/></source></hostdev>");
}

TEST_F(DeviceText, StandsInAZeroedBufferOfTwoHundredBytes) {
    char* text = nullptr;
    EXPECT_EQ(vm().getXMLDescForVF(kVf, &text), 0);
    EXPECT_EQ(test::library_blocks(), 1U) << "from the C allocator, for free";
    EXPECT_EQ(
        std::string(text + std::strlen(text), text + 200), std::string(200 - kVfText.size(), '\0'));
    std::free(text);
    EXPECT_EQ(test::library_blocks(), 0U);
}

TEST_F(DeviceText, FailsOnlyWithoutAPlace) {
    EXPECT_EQ(vm().getXMLDescForVF(kVf, nullptr), 1);
    test::fail_library_allocation(1);
    char* text = reinterpret_cast<char*>(1);
    EXPECT_EQ(vm().getXMLDescForVF(kVf, &text), 0) << "memory is not what is tested";
    EXPECT_EQ(text, nullptr);
}

class Attachment : public test::VmTest {
protected:
    Attachment() : domain_(host().add({.name = "one", .id = 4, .uuid = numbered_uuid(1)})) {
        domain_.live = "<domain>live</domain>";
        domain_.inactive = "<domain>inactive</domain>";
        uuid_ = test::digits(domain_.uuid);
    }

    int attach(int id, const _VF& vf = kVf) {
        return run([&] { return vm().attachVFToVM(id, vf); });
    }
    int attach(std::string uuid, const _VF& vf = kVf) {
        return run([&] { return vm().attachVFToVM(uuid.data(), vf); });
    }
    int detach(int id, const _VF& vf = kVf) {
        return run([&] { return vm().dettachVFFromVM(id, vf); });
    }
    int detach(std::string uuid, const _VF& vf = kVf) {
        return run([&] { return vm().dettachVFFromVM(uuid.data(), vf); });
    }

    FakeDomain& domain_;
    std::string uuid_;
    std::string printed_;

private:
    int run(const std::function<int()>& call) {
        int result = -99;
        printed_ = printed([&] { result = call(); });
        return result;
    }
};

class AttachVF : public Attachment {};

TEST_F(AttachVF, ByIdIsLiveThenPersistent) {
    EXPECT_EQ(attach(4), 0);
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "virDomainLookupByID 4", "virDomainAttachDevice one",
                            "virDomainGetXMLDesc one 0", "virDomainDefineXML"));
    EXPECT_THAT(host().attached, ElementsAre(kVfText));
    EXPECT_THAT(host().defined, ElementsAre("<domain>live</domain>"));
    EXPECT_EQ(printed_, "AttachVFToVM: VM ID: 4\n");
    EXPECT_EQ(host().connection_calls, 1);
}

TEST_F(AttachVF, ByUuidIsLiveThenPersistent) {
    EXPECT_EQ(attach(uuid_), 0);
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "virDomainLookupByUUID " + uuid_, "virDomainAttachDevice one",
                            "virDomainGetXMLDesc one 0", "virDomainDefineXML"));
    EXPECT_THAT(host().attached, ElementsAre(kVfText));
    EXPECT_THAT(host().defined, ElementsAre("<domain>live</domain>"));
    EXPECT_EQ(printed_, "AttachVFToVM: UUID: " + uuid_ + "\n") << "and the text not on its own";
}

TEST_F(AttachVF, ReleasesItsTextAndKeepsTheDescription) {
    attach(4);
    EXPECT_EQ(test::library_blocks(), 0U);
    EXPECT_EQ(host().texts_released(), 0);
    EXPECT_EQ(host().counts().count("virDomainFree"), 0U);
}

TEST_F(AttachVF, PassesTheDescriptionItself) {
    attach(4);
    EXPECT_EQ(host().define_arguments, host().given_texts);
}

TEST_F(AttachVF, DoesNotReportAFailedRedefinitionButReleasesTheDescription) {
    host().results["virDomainDefineXML"] = 0;
    EXPECT_EQ(attach(4), 0);
    EXPECT_EQ(attach(uuid_), 0);
    EXPECT_EQ(host().texts_released(), 2);
    EXPECT_THAT(host().logged(), IsEmpty());
}

TEST_F(AttachVF, WithoutADescriptionRedefinesNothing) {
    host().results["virDomainGetXMLDesc"] = 0;
    EXPECT_EQ(attach(4), 0);
    EXPECT_THAT(host().defined, IsEmpty());
}

TEST_F(AttachVF, ThatLibvirtRefusesLeavesTheDomainUnchanged) {
    for (const int result : {-1, 1}) {
        host().results["virDomainAttachDevice"] = result;
        host().journal.clear();
        EXPECT_EQ(attach(4), 1);
        EXPECT_EQ(attach(uuid_), 1);
        EXPECT_THAT(
            host().journal, ElementsAre(
                                "virDomainLookupByID 4", "virDomainAttachDevice one",
                                "log 2 4 AttachVFToVM: Attachind device to VM failed",
                                "virDomainLookupByUUID " + uuid_, "virDomainAttachDevice one",
                                "log 2 4 AttachVFToVM: Attaching device to VM failed"));
        EXPECT_EQ(test::library_blocks(), 0U) << "the text is released";
    }
}

TEST_F(AttachVF, NeedsAConnection) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(attach(4), 1);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(attach(uuid_), 1);
    EXPECT_EQ(printed_, "");
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "log 2 4 AttachVFToVM: LibVirt connection failure",
                            "log 2 4 AttachVFToVM: LibVirt connection failure"));
}

TEST_F(AttachVF, NeedsADomain) {
    EXPECT_EQ(attach(5), 1);
    EXPECT_EQ(printed_, "AttachVFToVM: VM ID: 5\n");
    EXPECT_EQ(attach("%n"), 1);
    EXPECT_EQ(printed_, "AttachVFToVM: UUID: %n\n");
    EXPECT_THAT(
        host().logged(),
        ElementsAre("AttachVFToVM: Invalid Domain ID", "AttachVFToVM: Invalid Domain UUID"));
    EXPECT_THAT(host().attached, IsEmpty());
    char* const null = nullptr;
    printed([&] { EXPECT_EQ(vm().attachVFToVM(null, kVf), 1); });
}

TEST_F(AttachVF, WithoutMemoryForTheTextIsRefusedByLibvirt) {
    test::fail_library_allocation(1);
    EXPECT_EQ(attach(4), 1);
    EXPECT_THAT(host().attached, ElementsAre("(null)"));
    EXPECT_THAT(host().logged(), ElementsAre("AttachVFToVM: Attachind device to VM failed"));
}

// libvirt's description of a domain with two VFs.
const std::string kHead =
    "<domain type='kvm' id='4'>\n  <name>one</name>\n  <devices>\n    <emulator>q</emulator>\n    ";
const std::string kFirst =
    "<hostdev mode='subsystem' type='pci' managed='yes'>\n      <driver name='vfio'/>\n"
    "      <source>\n        <address domain='0x0000' bus='0x03' slot='0x00' function='0x4'/>\n"
    "      </source>\n      <alias name='hostdev0'/>\n"
    "      <address type='pci' domain='0x0000' bus='0x00' slot='0x05' function='0x0'/>\n"
    "    </hostdev>";
const std::string kBetween = "\n\t  <!-- between -->\n    ";
const std::string kSecond =
    "<hostdev mode='subsystem' type='pci' managed='yes'>\n      <source>\n"
    "        <address domain='0x0001' bus='0x0a' slot='0x1f' function='0x7'/>\n"
    "      </source>\n    </hostdev>";
const std::string kTail = "\n    <memballoon model='virtio'/>\n  </devices>\n</domain>\n";
const std::string kTwo = kHead + kFirst + kBetween + kSecond + kTail;

class DetachVF : public Attachment {
protected:
    DetachVF() { domain_.inactive = kTwo; }

    // Whether the address in a block of its own makes the block match.
    bool matches(const std::string& block) {
        domain_.inactive = "<domain>" + block + "</domain>";
        host().defined.clear();
        const int result = detach(4);
        EXPECT_EQ(host().defined.size(), result == 0 ? 1U : 0U) << block;
        return result == 0;
    }
    static std::string block(const std::string& address) {
        return "<hostdev type='pci'><source><" + address + "/></source></hostdev>";
    }
};

TEST_F(DetachVF, ByIdEditsThePersistentDescription) {
    EXPECT_EQ(detach(4), 0);
    EXPECT_THAT(
        host().journal,
        ElementsAre("virDomainLookupByID 4", "virDomainGetXMLDesc one 2", "virDomainDefineXML"));
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + kHead + kBetween + kSecond + kTail));
    EXPECT_EQ(host().connection_calls, 1);
}

TEST_F(DetachVF, ByUuidEditsThePersistentDescription) {
    EXPECT_EQ(detach(uuid_), 0);
    EXPECT_THAT(
        host().journal,
        ElementsAre(
            "virDomainLookupByUUID " + uuid_, "virDomainGetXMLDesc one 2", "virDomainDefineXML"));
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + kHead + kBetween + kSecond + kTail));
    EXPECT_EQ(printed_.substr(0, 23 + 33), "dettachVFFromVM: UUID: " + uuid_ + "\n");
}

TEST_F(DetachVF, OfTheSecondDeviceKeepsAllElseByteForByte) {
    EXPECT_EQ(detach(4, {1, 10, 31, 7}), 0);
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + kHead + kFirst + kBetween + kTail));
}

TEST_F(DetachVF, PrintsTheWordsInFrontOfEachAddress) {
    detach(4, {1, 10, 31, 7});
    EXPECT_EQ(
        printed_,
        "dettachVFFromVM: VM ID: 4\n"
        "hostdev\nmode\nsubsystem\ntype\npci\nmanaged\nyes\ndriver\nname\nvfio\n/\nsource\n"
        "hostdev\nmode\nsubsystem\ntype\npci\nmanaged\nyes\nsource\n");
}

TEST_F(DetachVF, PrintsAllWordsOfABlockThatLacksTheWantedOnes) {
    EXPECT_FALSE(matches("<hostdev type='usb'><source address='%n'/></hostdev>"));
    EXPECT_EQ(
        printed_,
        "dettachVFFromVM: VM ID: 4\nhostdev\ntype\nusb\nsource\naddress\n%n\n/\n/hostdev\n");
}

TEST_F(DetachVF, ComparesAllFourNumbers) {
    EXPECT_EQ(detach(4, {1, 3, 0, 4}), 1);
    EXPECT_EQ(detach(4, {0, 4, 0, 4}), 1);
    EXPECT_EQ(detach(4, {0, 3, 1, 4}), 1);
    EXPECT_EQ(detach(4, {0, 3, 0, 5}), 1);
    EXPECT_EQ(detach(4, {0, 3, 0, 4}), 0);
}

TEST_F(DetachVF, ReadsHexadecimalNumbers) {
    domain_.inactive =
        "<d>" + block("address domain='0x0000' bus='0x0a' slot='0x10' function='0x1'") + "</d>";
    EXPECT_EQ(detach(4, {0, 0x10, 10, 1}), 1);
    EXPECT_EQ(detach(4, {0, 10, 16, 1}), 0);
    EXPECT_TRUE(matches(block("address domain='0x0' bus='0x3' slot='0x00000' function='0x04'")));
}

TEST_F(DetachVF, ComparesAllBitsOfANumber) {
    domain_.inactive =
        "<d>" + block("address domain='0x0100' bus='0x103' slot='0x10000' function='0x4'") + "</d>";
    EXPECT_EQ(detach(4, {0, 0x103, 0x10000, 4}), 1);
    EXPECT_EQ(detach(4, {0x100, 3, 0x10000, 4}), 1);
    EXPECT_EQ(detach(4, {0x100, 0x103, 0, 4}), 1);
    EXPECT_EQ(detach(4, {0x100, 0x103, 0x10000, 4}), 0);
}

TEST_F(DetachVF, WantsNamesAndNumbersInTheirPlaces) {
    EXPECT_TRUE(matches(block("address domain='0x0000' bus='0x03' slot='0x00' function='0x4'")));
    for (const char* address : {
             "address bus='0x03' domain='0x0000' slot='0x00' function='0x4'",
             "address type='pci' domain='0x0000' bus='0x03' slot='0x00' function='0x4'",
             "address domain='0x0000' bus='0x03' function='0x4' slot='0x00'",
             "address domain='0x0000' bus='0x03' slot='0x00' multi='0x4'",
             "address domain='0x0000' bus='0x03' device='0x00' function='0x4'",
             "address domain='0x0000' x='1' bus='0x03' slot='0x00' function='0x4'",
             "address domain='0x0000' bus='0x03' slot='0x00'",
             "address domain='0x0000' bus='0x03'",
             "address domain='0x0000'",
             "address domain=''",
             "address domain",
             "address",
             "address domain='0000' bus='03' slot='00' function='4'",
             "address domain='0x0000' bus='3' slot='0x00' function='0x4'",
             "address domain='0x' bus='0x03' slot='0x00' function='0x4'",
             "address domain='0xg' bus='0x03' slot='0x00' function='0x4'",
             "address domain=\"0x0000\" bus=\"0x03\" slot=\"0x00\" function=\"0x4\"",
         }) {
        EXPECT_FALSE(matches(block(address))) << address;
        EXPECT_EQ(host().logged().back(), "DettachVFFromVM: VF not attached");
    }
}

TEST_F(DetachVF, WantsPciInFrontOfTheAddress) {
    const std::string address = "<address domain='0x0000' bus='0x03' slot='0x00' function='0x4'/>";
    EXPECT_FALSE(matches("<hostdev><pci/>" + address + "</hostdev>"))
        << "a slash is part of a word";
    EXPECT_TRUE(matches("<hostdev><pci />" + address + "</hostdev>"));
    EXPECT_FALSE(matches("<hostdev>" + address + "</hostdev>"));
    EXPECT_FALSE(matches("<hostdev>" + address + "<pci /></hostdev>"));
    EXPECT_FALSE(matches("<hostdev type='pcie'>" + address + "</hostdev>"));
    EXPECT_TRUE(
        matches("<hostdev type='pci'>\t\n<address\tdomain = '0x0000'\nbus='0x03'"
                " slot='0x00'  function='0x4' /></hostdev>"));
    EXPECT_TRUE(matches("<hostdev type='pci'><source>" + address + "more</source></hostdev>"));
}

TEST_F(DetachVF, OnlyTheFirstAddressOfABlockCounts) {
    EXPECT_FALSE(matches(
        "<hostdev type='pci'><address domain='0x0000' bus='0x09' slot='0x00' function='0x4'/>"
        "<address domain='0x0000' bus='0x03' slot='0x00' function='0x4'/></hostdev>"));
}

TEST_F(DetachVF, NumbersOfOneBlockDoNotCountForTheNext) {
    EXPECT_FALSE(
        matches("<hostdev type='pci'><address domain='0x0000' bus='0x03' slot='0x00'/></hostdev>"
                "<hostdev type='pci'><address function='0x4'/></hostdev>"));
}

TEST_F(DetachVF, ASelfClosedDeviceGoesWithTheNextBlock) {
    domain_.inactive = "<d><hostdev/>" + kFirst + "</d>";
    EXPECT_EQ(detach(4), 0);
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + "<d></d>"));
}

TEST_F(DetachVF, OfADomainWithoutDevicesIsNotAttached) {
    for (const std::string& description :
         {std::string("<domain/>"), std::string(), kFirst.substr(0, kFirst.size() - 1),
          "</hostdev>" + kFirst, std::string("<hostdev")}) {
        domain_.inactive = description;
        host().journal.clear();
        EXPECT_EQ(detach(4), 1);
        EXPECT_THAT(host().logged(), ElementsAre("DettachVFFromVM: VF not attached"));
    }
    EXPECT_THAT(host().defined, IsEmpty());
}

TEST_F(DetachVF, WithoutADescriptionIsNotAttached) {
    host().results["virDomainGetXMLDesc"] = 0;
    EXPECT_EQ(detach(4), 1);
    EXPECT_THAT(host().logged(), ElementsAre("DettachVFFromVM: VF not attached"));
}

TEST_F(DetachVF, ReportsAFailedRedefinition) {
    host().results["virDomainDefineXML"] = 0;
    EXPECT_EQ(detach(4), 1);
    EXPECT_EQ(detach(uuid_), 1);
    EXPECT_THAT(
        host().logged(), ElementsAre(
                             "DettachVFFromVM: Error while saving configuration",
                             "DettachVFFromVM: Error while saving configuration"));
    EXPECT_EQ(host().texts_released(), 0);
}

TEST_F(DetachVF, KeepsTheDescriptionAndTheHandle) {
    detach(4);
    detach(4, {9, 9, 9, 9});
    EXPECT_EQ(host().texts_released(), 0);
    EXPECT_EQ(test::library_blocks(), 0U);
    EXPECT_EQ(host().counts().count("virDomainFree"), 0U);
}

TEST_F(DetachVF, NeedsAConnection) {
    host().refuse_connection_from = 1;
    EXPECT_EQ(detach(4), 1);
    EXPECT_EQ(detach(uuid_), 1);
    EXPECT_EQ(printed_, "");
    EXPECT_THAT(
        host().journal, ElementsAre(
                            "log 2 4 DettachVFFromVM: LibVirtConnection failed",
                            "log 2 4 DettachVFFromVM: LibVirtConnection failed"));
}

TEST_F(DetachVF, NeedsADomain) {
    EXPECT_EQ(detach(5), 1);
    EXPECT_EQ(printed_, "dettachVFFromVM: VM ID: 5\n");
    EXPECT_EQ(detach("00"), 1);
    EXPECT_EQ(printed_, "dettachVFFromVM: UUID: 00\n");
    char* const null = nullptr;
    printed([&] { EXPECT_EQ(vm().dettachVFFromVM(null, kVf), 1); });
    EXPECT_THAT(
        host().logged(),
        ElementsAre(
            "DettachVFFromVM: Invalid Domain Id", "DettachVFFromVM: Invalid Domain Id",
            "DettachVFFromVM: Invalid Domain Id"));
}

TEST_F(DetachVF, FindsTheLastOfHundredsOfDevicesWithLongWords) {
    std::string devices;
    for (int k = 0; k < 600; ++k) {
        devices += "<hostdev type='pci' note='" + std::string(3000, 'w') +
                   "'><address domain='0x0000' bus='0x03' slot='0x00' function='0x1'/></hostdev>";
    }
    domain_.inactive = "<d>" + devices + kFirst + "</d>";
    EXPECT_EQ(detach(4), 0);
    EXPECT_THAT(host().defined, ElementsAre(kDeclaration + "<d>" + devices + "</d>"));
}

}  // namespace
