// adapter list and adapter show on simulated hosts.
#include <gmock/gmock.h>

#include <cerrno>

#include "kxctl/on_host.hpp"
#include "library/adapter_fields.hpp"

namespace {

using test::json_on;
using test::run_on;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using Json = nlohmann::json;

const kxsim::ProductData kProduct{
    .product = "SIXTEEN LETTERS!",
    .part_number = "0123456789ABCDEF",
    .serial = "SERIAL",
    .mac = "00074311AbCd",
    .v0 = "v0",
    .v5 = "v5"};

kxsim::Adapter adapter(const std::string& chip, unsigned bus) {
    const std::string location = "0" + std::to_string(bus) + (chip == "Q3" ? ":00.0" : ":00.4");
    return {.chip = chip, .location = location, .eeprom = {.product_data = kProduct}};
}

class AdapterCommands : public testing::Test {
protected:
    Json show(const std::string& location) { return json_on(host_, {"adapter", "show", location}); }

    kxsim::Host host_;
};

TEST_F(AdapterCommands, NeedNoDriver) {
    host_.adapter(adapter("Q3", 3));
    host_.adapter(adapter("Q4", 4));
    host_.adapter(adapter("Q5", 5));
    const Json all = json_on(host_, {"adapter", "list"}).at("adapters");
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].at("chip_type"), "Q3");
    EXPECT_EQ(all[0].at("product"), "Q320-CR");
    EXPECT_TRUE(all[0].at("port_count").is_null()) << "neither the product nor a driver tells";
    EXPECT_EQ(all[1].at("product"), "SIXTEEN LETTERS!");
    EXPECT_EQ(all[1].at("port_count"), 4);
    EXPECT_EQ(all[2].at("location"), "05:00.4");
    EXPECT_EQ(all[2].at("adapter_index"), 2);
    EXPECT_EQ(all[2].at("serial_number"), "SERIAL");
    EXPECT_EQ(all[2].at("mac"), "00:07:43:11:ab:cd");
}

TEST_F(AdapterCommands, TellPortsThatTheDriverKnows) {
    host_.module({.name = "zfab3", .loaded = true});
    kxsim::Adapter with_ports = adapter("Q3", 3);
    with_ports.ports = {{.name = "eth2"}, {.name = "eth3"}};
    host_.adapter(with_ports);
    const Json reply = show("03:00.0");
    EXPECT_EQ(reply.at("port_count"), 2);
    ASSERT_EQ(reply.at("ports").size(), 2U);
    EXPECT_EQ(reply.at("ports").at(1).at("interface"), "eth3");
    EXPECT_EQ(reply.at("ports").at(1).at("instance"), 2);
    EXPECT_TRUE(reply.at("ports").at(1).at("mac").is_string());
    EXPECT_EQ(
        json_on(host_, {"adapter", "list"}).at("adapters").at(0).at("ports"), reply.at("ports"));
    const Json vpd = json_on(host_, {"vpd", "show", "eth2"});
    EXPECT_EQ(vpd.at("location"), "03:00.0");
    EXPECT_EQ(vpd.at("ports"), reply.at("ports"));
}

TEST_F(AdapterCommands, TextsThatFillTheirFieldsAreWhole) {
    for (const char* chip : {"Q3", "Q4", "Q5"}) {
        kxsim::Host host;
        kxsim::Adapter full = adapter(chip, 3);
        full.device_id =
            chip == std::string("Q3") ? 0x20 : 0;  // no model: its name is that in its data
        full.eeprom.product_data->serial = "0123456789abcdef";
        full.eeprom.product_data->v0 = "v0full";
        host.adapter(full);
        const Json reply = json_on(host, {"adapter", "show", full.location});
        EXPECT_EQ(reply.at("product"), "SIXTEEN LETTERS!") << chip;
        EXPECT_EQ(reply.at("part_number"), "0123456789ABCDEF") << chip;
        EXPECT_EQ(reply.at("serial_number"), "0123456789abcdef") << chip;
        EXPECT_EQ(reply.at("v0"), "v0full") << chip;
        EXPECT_EQ(reply.at("v5"), "v5") << chip;
    }
}

// A record whose fields differ: byte k is k modulo 251.
std::string distinct_record() {
    std::string record(1664, '\0');
    for (std::size_t i = 0; i < record.size(); ++i) {
        record[i] = static_cast<char>(i % 251);
    }
    record.replace(0, 4, "CBIO");
    record.replace(304, 42, "iqn.2010-06.com.kestrix:boot:" + std::string(13, 'n'));
    return record;
}

TEST_F(AdapterCommands, BootConfigurationHasItsFieldsByName) {
    kxsim::Adapter configured = adapter("Q4", 4);
    configured.flash.content = {
        {0, std::string("\x55\xAA", 2) + std::string(14, '\0') + "\x01\x02\x03\x04"},
        {0x70000, distinct_record()}};
    host_.adapter(configured);
    const Json reply = show("04:00.4");
    EXPECT_EQ(reply.at("bios_version"), "1.2.3.4");
    const Json& config = reply.at("boot_configuration");
    EXPECT_EQ(config.at("byte10"), 10);
    EXPECT_EQ(config.at("port16"), Json({16, 17, 18, 19}));
    EXPECT_EQ(config.at("byte59"), 59);
    EXPECT_EQ(config.at("port192"), Json({192, 193, 194, 195}));
    EXPECT_EQ(config.at("word206"), 206 + 207 * 256);
    EXPECT_EQ(config.at("iscsi_port"), 208 + 209 * 256);
    EXPECT_EQ(config.at("byte220"), 220);
    EXPECT_EQ(config.at("port240").at(0), 0xF3F2F1F0U);
    EXPECT_EQ(config.at("port280"), Json({29, 30, 31, 32}));
    EXPECT_EQ(config.at("initiator_name"), "iqn.2010-06.com.kestrix:boot:" + std::string(13, 'n'));
    EXPECT_TRUE(reply.at("settings").is_null());
}

TEST_F(AdapterCommands, BootFieldsStandInOrderAndDoNotOverlap) {
    std::size_t end = 0;
    for (const kx::ctl::BootField& field : kx::ctl::boot_fields()) {
        EXPECT_GE(field.offset, end) << field.name;
        end = field.offset + field.width * field.count;
    }
    EXPECT_LE(end, offsetof(Q4BootConfig, initiator_name));
}

TEST_F(AdapterCommands, ErasedFlashHasNeitherRomNorConfiguration) {
    host_.adapter(adapter("Q5", 5));
    const Json reply = show("05:00.4");
    EXPECT_EQ(reply.at("option_rom"), false);
    EXPECT_TRUE(reply.at("bios_version").is_null());
    EXPECT_TRUE(reply.at("boot_configuration").is_null());
    EXPECT_THAT(
        run_on(host_, {"adapter", "show", "05:00.4"}).out,
        EndsWith("Boot configuration     none\n"));
}

TEST_F(AdapterCommands, Q3BlockThatIsNoVersionIsAnOptionRomAllTheSame) {
    kxsim::Adapter marked = adapter("Q3", 3);
    marked.flash.content = {{0, "\x55\xAA$DM$0123456789AB"}, {0x30000, std::string("CIB\0\1", 5)}};
    host_.adapter(marked);
    const Json reply = show("03:00.0");
    EXPECT_EQ(reply.at("option_rom"), true);
    EXPECT_TRUE(reply.at("bios_version").is_null());
    EXPECT_EQ(reply.at("settings"), true);
    EXPECT_TRUE(reply.at("default_config_version").is_null());
}

TEST_F(AdapterCommands, AdapterThatCannotBeReadIsItsPlaceAlone) {
    for (const char* chip : {"Q3", "Q4", "Q5"}) {
        kxsim::Host host;
        kxsim::Adapter blind = adapter(chip, 3);
        blind.eeprom.capability = false;
        host.adapter(blind);
        const Json reply = json_on(host, {"adapter", "show", blind.location});
        EXPECT_EQ(reply.at("chip_type"), chip);
        for (const char* unknown :
             {"product", "serial_number", "mac", "option_rom", "bios_version",
              "default_config_version", "boot_configuration", "settings"}) {
            EXPECT_TRUE(reply.at(unknown).is_null()) << chip << " " << unknown;
        }
    }
}

TEST_F(AdapterCommands, MacThatIsNoneIsShownAsItIs) {
    kxsim::Adapter odd = adapter("Q4", 4);
    odd.eeprom.product_data->mac = "00074311ZZ";
    host_.adapter(odd);
    EXPECT_EQ(show("04:00.4").at("mac"), "00074311ZZ");
}

TEST_F(AdapterCommands, UnknownLocationIsNotFound) {
    host_.adapter(adapter("Q4", 4));
    for (const char* location : {"04:00.5", "0000:04:00.5", "0001:05:00.4"}) {
        const test::Result result = run_on(host_, {"adapter", "show", location});
        EXPECT_EQ(result.exit, 3);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(
            result.err,
            std::string("kxctl: There is no adapter at ") + location + "; did you mean 04:00.4?\n");
    }
}

TEST_F(AdapterCommands, HostWithoutAdapterHasNone) {
    const test::Result list = run_on(host_, {"adapter", "list"});
    EXPECT_EQ(list.exit, 0);
    EXPECT_EQ(list.err, "kxctl: This host has no Kestrix adapter\n");
    for (const char* noun : {"adapter", "vpd"}) {
        const test::Result result = run_on(host_, {noun, "show", "04:00.4"});
        EXPECT_EQ(result.exit, 3);
        EXPECT_EQ(
            result.err,
            "kxctl: No adapter found; \"kxctl card list\" shows the cards that a driver serves\n");
    }
}

TEST_F(AdapterCommands, RefusedWindowIsToldInOneLine) {
    host_.adapter(adapter("Q4", 4));
    host_.fail({.call = "open", .times = 0, .error = EPERM, .object = "/dev/mem"});
    const test::Result result = run_on(host_, {"adapter", "list"});
    EXPECT_NE(result.exit, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(
        result.err,
        testing::StartsWith("kxctl: The register window of an adapter cannot be opened"));
    EXPECT_THAT(result.err, EndsWith("\n"));
}

// The library's list of the adapters does not say that one window among several was refused.
TEST_F(AdapterCommands, OneRefusedWindowOfSeveralLeavesNullAndItsReason) {
    for (const char* chip : {"Q3", "Q4", "Q5"}) {
        kxsim::Host host;
        host.adapter(adapter(chip, 3));
        host.adapter(adapter("Q5", 5));
        const std::string location = chip == std::string("Q3") ? "03:00.0" : "03:00.4";
        const std::string reason =
            location + ": The register window of an adapter cannot be opened";
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"adapter", "list"}, {"adapter", "show", location}}) {
            host.fail({.call = "mmap", .error = EPERM, .object = "/dev/mem"});
            const Json answer = json_on(host, words, 4);
            EXPECT_EQ(answer.at("incomplete"), Json{reason}) << chip;
            const Json& first = words.size() == 2 ? answer.at("adapters").at(0) : answer;
            EXPECT_TRUE(first.at("option_rom").is_null()) << chip;
            EXPECT_EQ(first.at("serial_number"), "SERIAL") << chip;
        }
        host.fail({.call = "mmap", .error = EPERM, .object = "/dev/mem"});
        const test::Result text = run_on(host, {"adapter", "show", location});
        EXPECT_EQ(text.exit, 4);
        EXPECT_EQ(text.err, "kxctl: " + reason + "\n");
        EXPECT_THAT(text.out, HasSubstr("The flash, because the register window was not opened"));
    }
}

TEST_F(AdapterCommands, LibrarysOwnLinesStayOutOfTheOutput) {
    host_.adapter(adapter("Q4", 4));
    const test::Result quiet = run_on(host_, {"adapter", "show", "04:00.4"});
    EXPECT_EQ(quiet.err, "");
    EXPECT_THAT(quiet.out, Not(HasSubstr("get_adapter")));
    const test::Result verbose = run_on(host_, {"-v", "adapter", "show", "04:00.4"});
    EXPECT_EQ(verbose.out, quiet.out);
    EXPECT_THAT(verbose.err, HasSubstr("get_adapterinfo_list: Enter function..."));
}

TEST_F(AdapterCommands, SayWhyNothingOfAnAdapterCouldBeRead) {
    host_.adapter(adapter("Q5", 3));
    kxsim::Adapter silent = adapter("Q4", 4);
    silent.eeprom.capability = false;
    host_.adapter(silent);
    const test::Result people = run_on(host_, {"adapter", "list"});
    EXPECT_EQ(people.exit, 4);
    EXPECT_THAT(people.out, HasSubstr("04:00.4"));
    const std::string reason = "04:00.4: The adapter has no PCI capability for vital product data";
    EXPECT_EQ(people.err, "kxctl: " + reason + "\n");
    const Json answer = json_on(host_, {"adapter", "list"}, 4);
    EXPECT_EQ(answer.at("incomplete"), Json::array({reason}));
    EXPECT_TRUE(answer.at("adapters").at(1).at("product").is_null());
    EXPECT_TRUE(answer.at("adapters").at(1).at("option_rom").is_null());
}

}  // namespace
