// The two list builders call exported functions in a fixed order. An agent may replace each of
// these functions.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>
#include <kxlinhw/vpd.h>

#include <cerrno>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

std::vector<std::string>& calls() {
    static std::vector<std::string> made;
    return made;
}

unsigned delays = 0;

// Record a call, and call the library's function.
template <class Function, class... Arguments>
auto call(const char* name, Arguments... arguments) {
    calls().emplace_back(name);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

extern "C" {

KX_EXPORT uint8_t scan_hbas(void) { return call<decltype(scan_hbas)>("scan_hbas"); }
KX_EXPORT uint8_t getPortsQ4(const char* id) {
    return call<decltype(getPortsQ4)>("getPortsQ4", id);
}
KX_EXPORT int32_t vpd_setup(uint8_t adapter, uint32_t* cap) {
    return call<decltype(vpd_setup)>("vpd_setup", adapter, cap);
}
KX_EXPORT void get_Q4(uint8_t adapter, uint32_t cap, void* eeprom, void* vpd, void* config) {
    call<decltype(get_Q4)>("get_Q4", adapter, cap, eeprom, vpd, config);
}
KX_EXPORT void get_Q3(uint8_t adapter, uint32_t cap, void* eeprom, void* vpd, void* config) {
    call<decltype(get_Q3)>("get_Q3", adapter, cap, eeprom, vpd, config);
}
KX_EXPORT void eeprom_rd_all_Q4(uint8_t adapter, uint32_t cap, void* eeprom) {
    call<decltype(eeprom_rd_all_Q4)>("eeprom_rd_all_Q4", adapter, cap, eeprom);
}
KX_EXPORT void eeprom_rd_all_Q3(uint8_t adapter, uint32_t cap, void* eeprom) {
    call<decltype(eeprom_rd_all_Q3)>("eeprom_rd_all_Q3", adapter, cap, eeprom);
}
KX_EXPORT void eeprom2vpd_Q4(const void* eeprom, void* vpd) {
    call<decltype(eeprom2vpd_Q4)>("eeprom2vpd_Q4", eeprom, vpd);
}
KX_EXPORT void eeprom2vpd_Q3(const void* eeprom, void* vpd) {
    call<decltype(eeprom2vpd_Q3)>("eeprom2vpd_Q3", eeprom, vpd);
}
KX_EXPORT void eeprom2sercfg_Q4(const void* eeprom, void* config) {
    call<decltype(eeprom2sercfg_Q4)>("eeprom2sercfg_Q4", eeprom, config);
}
KX_EXPORT void eeprom2sercfg_Q3(const void* eeprom, void* config) {
    call<decltype(eeprom2sercfg_Q3)>("eeprom2sercfg_Q3", eeprom, config);
}
KX_EXPORT void vpd_init_Q4(void* vpd) { call<decltype(vpd_init_Q4)>("vpd_init_Q4", vpd); }
KX_EXPORT void vpd_init_Q3(void* vpd) { call<decltype(vpd_init_Q3)>("vpd_init_Q3", vpd); }
KX_EXPORT void vpd_chksum_Q4(void* vpd) { call<decltype(vpd_chksum_Q4)>("vpd_chksum_Q4", vpd); }
KX_EXPORT void vpd_chksum_Q3(void* vpd) { call<decltype(vpd_chksum_Q3)>("vpd_chksum_Q3", vpd); }
KX_EXPORT void parse_vpd(const void* vpd, void* entries, uint32_t* count) {
    call<decltype(parse_vpd)>("parse_vpd", vpd, entries, count);
}
KX_EXPORT void copy_vpd_fields(const void* entries, uint32_t count, void* record) {
    call<decltype(copy_vpd_fields)>("copy_vpd_fields", entries, count, record);
}
KX_EXPORT int32_t connect_to_hba(uint8_t adapter) {
    return call<decltype(connect_to_hba)>("connect_to_hba", adapter);
}
KX_EXPORT int32_t connect_to_hba_Q4(uint8_t adapter) {
    return call<decltype(connect_to_hba_Q4)>("connect_to_hba_Q4", adapter);
}
KX_EXPORT void disconnect_from_hba(uint8_t adapter) {
    call<decltype(disconnect_from_hba)>("disconnect_from_hba", adapter);
}
KX_EXPORT int32_t q3_get_dm_signature(uint8_t adapter, void* out) {
    return call<decltype(q3_get_dm_signature)>("q3_get_dm_signature", adapter, out);
}
KX_EXPORT int32_t get_pxe_oprom_version(uint8_t adapter, void* out) {
    return call<decltype(get_pxe_oprom_version)>("get_pxe_oprom_version", adapter, out);
}
KX_EXPORT int32_t q3_read_settings(uint8_t adapter, void* out) {
    return call<decltype(q3_read_settings)>("q3_read_settings", adapter, out);
}
KX_EXPORT int32_t read_flash_for_config(uint8_t adapter, void* buffer) {
    return call<decltype(read_flash_for_config)>("read_flash_for_config", adapter, buffer);
}
KX_EXPORT int32_t Is_Valid_q4oprom_Present(uint8_t adapter) {
    return call<decltype(Is_Valid_q4oprom_Present)>("Is_Valid_q4oprom_Present", adapter);
}
KX_EXPORT int32_t get_default_config_version(uint8_t chip_class) {
    calls().push_back("get_default_config_version(" + std::to_string(chip_class) + ")");
    return 3;
}
KX_EXPORT int32_t q4_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record) {
    return call<decltype(q4_get_adapterinfo)>("q4_get_adapterinfo", adapter, cap, record);
}
KX_EXPORT int32_t q5_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record) {
    return call<decltype(q5_get_adapterinfo)>("q5_get_adapterinfo", adapter, cap, record);
}
KX_EXPORT int32_t q3_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record) {
    return call<decltype(q3_get_adapterinfo)>("q3_get_adapterinfo", adapter, cap, record);
}

KX_EXPORT void msleep(uint32_t) { ++delays; }

// Recorded with its address and length.
KX_EXPORT int32_t q3_read_flash(uint8_t adapter, uint32_t address, uint32_t words, uint32_t* out) {
    calls().push_back(
        "q3_read_flash(" + std::to_string(address) + ", " + std::to_string(words) + ")");
    using Function = decltype(q3_read_flash);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "q3_read_flash"))(
        adapter, address, words, out);
}

}  // extern "C"

namespace {

using Calls = std::vector<std::string>;

class ListCalls : public testing::Test {
protected:
    ~ListCalls() override { cleanup_and_exit(0); }

    void start(const std::string& chip, const std::string& rom = {}) {
        host_.adapter(
            {.chip = chip,
             .location = chip == "Q3" ? "03:00.0" : "03:00.4",
             .flash = {.content = {{0, rom}}},
             .eeprom = {.product_data = kxsim::ProductData{}}});
        attached_.emplace(host_.attach());
    }

    template <class Record>
    static Calls of(uint32_t (*build)(Record**)) {
        Record* first = nullptr;
        calls().clear();
        delays = 0;
        test::told([&] { test::printed([&] { build(&first); }); });
        return calls();
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
};

TEST_F(ListCalls, OfAQ4) {
    start("Q4");
    const Calls eeprom = {"get_Q4",           "eeprom_rd_all_Q4", "eeprom2vpd_Q4",
                          "eeprom2sercfg_Q4", "vpd_init_Q4",      "vpd_chksum_Q4"};
    Calls list = {"scan_hbas", "getPortsQ4", "vpd_setup"};
    list.insert(list.end(), eeprom.begin(), eeprom.end());
    for (const char* step :
         {"connect_to_hba_Q4", "read_flash_for_config", "Is_Valid_q4oprom_Present",
          "disconnect_from_hba", "get_default_config_version(1)"}) {
        list.emplace_back(step);
    }
    EXPECT_THAT(of(get_adapter_list), ElementsAreArray(list));
    EXPECT_EQ(g_KestrixAdapters->default_config_version, 3) << "the host's own answer";
    EXPECT_EQ(delays, (512U + 1024U) / 4U) << "one for each dword of the EEPROM";

    Calls info = {"scan_hbas", "vpd_setup", "q4_get_adapterinfo"};
    info.insert(info.end(), eeprom.begin(), eeprom.end());
    for (const char* step :
         {"connect_to_hba_Q4", "read_flash_for_config", "Is_Valid_q4oprom_Present",
          "get_default_config_version(1)", "disconnect_from_hba"}) {
        info.emplace_back(step);
    }
    EXPECT_THAT(of(get_adapterinfo_list), ElementsAreArray(info));
}

TEST_F(ListCalls, OfAQ5) {
    start("Q5");
    const Calls steps = {
        "eeprom_rd_all_Q4",
        "eeprom2vpd_Q4",
        "parse_vpd",
        "copy_vpd_fields",
        "connect_to_hba_Q4",
        "read_flash_for_config",
        "Is_Valid_q4oprom_Present",
        "get_default_config_version(2)",
        "disconnect_from_hba"};
    Calls list = {"scan_hbas", "getPortsQ4", "vpd_setup"};
    list.insert(list.end(), steps.begin(), steps.end());
    EXPECT_THAT(of(get_adapter_list), ElementsAreArray(list));
    Calls info = {"scan_hbas", "vpd_setup", "q5_get_adapterinfo"};
    info.insert(info.end(), steps.begin(), steps.end());
    EXPECT_THAT(of(get_adapterinfo_list), ElementsAreArray(info));
}

const Calls kQ3Eeprom = {"get_Q3",      "eeprom_rd_all_Q3", "eeprom2vpd_Q3", "eeprom2sercfg_Q3",
                         "vpd_init_Q3", "vpd_chksum_Q3",    "connect_to_hba"};

// Both lists of a Q3. Only their first steps differ.
class Q3Calls : public ListCalls {
protected:
    void expect(const Calls& boot) {
        Calls list = {"scan_hbas", "getPortsQ4", "vpd_setup"};
        Calls info = {"scan_hbas", "vpd_setup", "q3_get_adapterinfo"};
        for (Calls* each : {&list, &info}) {
            each->insert(each->end(), kQ3Eeprom.begin(), kQ3Eeprom.end());
            each->insert(each->end(), boot.begin(), boot.end());
            each->emplace_back("disconnect_from_hba");
        }
        EXPECT_THAT(of(get_adapter_list), ElementsAreArray(list));
        EXPECT_THAT(of(get_adapterinfo_list), ElementsAreArray(info));
        EXPECT_EQ(delays, 0U) << "a Q3's EEPROM needs none";
    }
};

TEST_F(Q3Calls, WithItsMark) {
    start("Q3", "\x55\xAA$DM$0123456789AB");
    expect(
        {"q3_read_flash(0, 7)", "q3_get_dm_signature", "q3_read_flash(0, 128)", "q3_read_settings",
         "q3_read_flash(196608, 111)"});
}

TEST_F(Q3Calls, WithAVersion) {
    start("Q3", "\x55\xAA PXE-2.0 1.2.3.4");
    expect(
        {"q3_read_flash(0, 7)", "q3_get_dm_signature", "q3_read_flash(0, 128)",
         "get_pxe_oprom_version", "q3_read_flash(0, 128)", "q3_read_settings",
         "q3_read_flash(196608, 111)"});
}

TEST_F(Q3Calls, WithoutOptionRom) {
    start("Q3", "\xAA\x55");
    expect({"q3_read_flash(0, 7)"});
}

TEST_F(ListCalls, OfARefusedWindowEndWithTheConnect) {
    start("Q4");
    host_.fail({.call = "open", .times = 0, .error = EPERM, .object = "/dev/mem"});
    EXPECT_EQ(of(get_adapter_list).back(), "connect_to_hba_Q4");
    EXPECT_EQ(of(get_adapterinfo_list).back(), "connect_to_hba_Q4");
}

TEST_F(ListCalls, OfAHostWithoutAdaptersEndWithTheScan) {
    attached_.emplace(host_.attach());
    EXPECT_THAT(of(get_adapter_list), ElementsAre("scan_hbas"));
    EXPECT_THAT(of(get_adapterinfo_list), ElementsAre("scan_hbas"));
}

}  // namespace
