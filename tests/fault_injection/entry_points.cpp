#include "fault_injection/entry_points.hpp"

#include <fcntl.h>
#include <kxlinhw/host.h>
#include <kxlinhw/kxlinhw.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <kxsim/scenario.hpp>
#include <memory>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
// The inventory of findMac stays by contract.
extern "C" KX_EXPORT const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() { return "leak:findMac\n"; }
extern "C" KX_EXPORT const char* __lsan_default_options();
const char* __lsan_default_options() { return "print_suppressions=0"; }
#endif

namespace test {
namespace {

constexpr char kPort[] = "eth4";
char q4_location[] = "04:00.4";
constexpr uint32_t kEverything = 0xFFFFFFFF;

// Places in the table of adapters.
struct Places {
    uint8_t q3 = 0;
    uint8_t q4 = 0;
} places;

// An inventory that is closed again; null when there is none.
class Inventory {
public:
    explicit Inventory(uint32_t mask) { InitAndFillInfo_Kxcard(&list_, mask); }
    ~Inventory() { Close_Kxcard(list_); }
    Inventory(const Inventory&) = delete;
    Inventory& operator=(const Inventory&) = delete;

    [[nodiscard]] CardList* list() const { return list_; }
    [[nodiscard]] CardInfo* card() const {
        return list_ == nullptr ? nullptr : lookupCardInfo(list_, q4_location);
    }
    [[nodiscard]] PortInfo* port() const { return lookupPortInCard(card(), 1); }

private:
    CardList* list_ = nullptr;
};

// The register window of an adapter, closed again.
class Window {
public:
    explicit Window(uint8_t adapter)
        : adapter_(adapter),
          open_((adapter == places.q3 ? connect_to_hba : connect_to_hba_Q4)(adapter) == 0) {}
    ~Window() {
        if (open_) {
            disconnect_from_hba(adapter_);
        }
    }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

private:
    uint8_t adapter_;
    bool open_;
};

// Memory that calls write to, large enough for all of them.
template <class T>
T* scratch() {
    alignas(std::max_align_t) static std::array<char, 65536> bytes;
    bytes.fill(0);
    return reinterpret_cast<T*>(bytes.data());
}

template <class... Words>
void ignore(Words&&...) {}

template <auto kFunction, class... Arguments>
void with_q4(Arguments... arguments) {
    const Window window(places.q4);
    ignore(kFunction(places.q4, arguments...));
}

template <auto kFunction, class... Arguments>
void with_q3(Arguments... arguments) {
    const Window window(places.q3);
    ignore(kFunction(places.q3, arguments...));
}

// A reader that opens the window itself, and leaves it open.
template <int32_t (*kRead)(uint8_t, void*)>
void read_q3() {
    ignore(kRead(places.q3, scratch<void>()));
    disconnect_from_hba(places.q3);
}

uint32_t vpd_cap(uint8_t adapter) {
    uint32_t cap = 0;
    ignore(vpd_setup(adapter, &cap));
    return cap;
}

PortSettings settings() {
    PortSettings block{};
    std::strcpy(block.mtu, "1500");
    std::strcpy(block.tx_checksum, "1");
    std::strcpy(block.rx_checksum, "1");
    std::strcpy(block.scatter_gather, "1");
    std::strcpy(block.rx_pause, "1");
    std::strcpy(block.tx_pause, "1");
    block.autoneg = 1;
    block.pause_autoneg = 1;
    block.rx_usecs = 5;
    block.rings = {.rx = 512, .rx_mini = 0, .rx_jumbo = 0, .tx = 512};
    block.change_mask = kEverything;
    return block;
}

CardParams card_block() {
    CardParams block{};
    block.activated = 1;
    block.max_wr = 16;
    block.mss = 1460;
    block.rx_credit_thres = 4096;
    block.change_mask = KX_CARD_OFFLOAD_BITS | KX_CARD_TX_COAL;
    return block;
}

template <int (*kSet)(const char*, PortSettings*, uint32_t)>
void set_port() {
    PortSettings block = settings();
    ignore(kSet(kPort, &block, kEverything));
}

template <uint32_t (*kIsLoaded)()>
void ask() {
    ignore(kIsLoaded());
}

template <class Query>
void query(Query ask_for) {
    uint32_t length = 65536;
    ignore(ask_for(scratch<void>(), &length));
}

// A boot image of two pages.
const std::vector<uint8_t>& boot_image() {
    static const std::vector<uint8_t> image = [] {
        std::vector<uint8_t> bytes(512, 0x11);
        bytes[0] = 0x55;
        bytes[1] = 0xAA;
        return bytes;
    }();
    return image;
}

template <class Record>
void list(uint32_t (*build)(Record**), uint32_t (*free_list)(Record*), Record*& head) {
    Record* first = nullptr;
    ignore(build(&first));
    free_list(head);
    head = nullptr;
}

void free_chain(StatEntry* first) {
    while (first != nullptr) {
        StatEntry* const next = first->next;
        std::free(first);
        first = next;
    }
}

constexpr char kWindowStays[] = "the mapping of a register window";

const auto kEntryPoints = std::to_array<EntryPoint>({
    {"Close_Kxcard", [] { const Inventory inventory(0); }},
    {"ConstructBuffer",
     [] {
         const Inventory inventory(0);
         if (inventory.list() != nullptr) {
             ignore(ConstructBuffer(
                 scratch<void>(), offsetof(CardInfo, next), inventory.list()->cards));
         }
     }},
    {"CopyInitiatorName",
     [] { CopyInitiatorName(scratch<void>(), "iqn.test:", "000743000001", 10); }},
    {"FillInfo_Kxcard",
     [] {
         const Inventory inventory(0);
         CardList* list = inventory.list();
         ignore(FillInfo_Kxcard(&list, kEverything));
     }},
    {"GetBootLibVersion", [] { ignore(GetBootLibVersion(scratch<void>())); }},
    {"GetCardInfo", [] { query(GetCardInfo); }},
    {"GetCardStats",
     [] { query([](void* to, uint32_t* n) { return GetCardStats(q4_location, to, n); }); }},
    {"GetDriverDetails", [] { query(GetDriverDetails); }},
    {"GetErrStr", [] { ignore(GetErrStr(66)); }},
    {"GetIwarpProps",
     [] {
         auto* const record = scratch<IwarpProps>();
         std::strcpy(record->module, "iw_zfab4");
         uint32_t size = sizeof(IwarpProps);
         ignore(GetIwarpProps(record, &size));
     }},
    {"GetLibVersion", [] { ignore(GetLibVersion(scratch<void>())); }},
    {"GetPortInfo",
     [] { query([](void* to, uint32_t* n) { return GetPortInfo(q4_location, to, n); }); }},
    {"GetPortStat",
     [] { query([](void* to, uint32_t* n) { return GetPortStat(q4_location, 1, to, n); }); }},
    {"InitAndFillInfo_Kxcard", [] { const Inventory inventory(kEverything); }},
    {"InitMXBuffer",
     [] {
         ignore(InitMXBuffer());
         ignore(ReleaseMXBuffer());
         g_MXdataBuffer = nullptr;
     }},
    {"Is_Valid_q4config_Present", [] { with_q4<Is_Valid_q4config_Present>(); }, kWindowStays},
    {"Is_Valid_q4oprom_Present", [] { with_q4<Is_Valid_q4oprom_Present>(); }, kWindowStays},
    {"ReallocMXbuffer",
     [] {
         if (InitMXBuffer() == 0) {
             ignore(ReallocMXbuffer());
             ignore(ReleaseMXBuffer());
         }
         g_MXdataBuffer = nullptr;
         g_MXdataBufferSize = 0;
     }},
    {"ReleaseMXBuffer",
     [] {
         g_MXdataBuffer = static_cast<char*>(std::malloc(1));
         ignore(ReleaseMXBuffer());
         g_MXdataBuffer = nullptr;
     }},
    {"SetCardParam",
     [] {
         CardParams block = card_block();
         ignore(SetCardParam(&block, q4_location));
     }},
    {"SetIwarpProps",
     [] {
         auto* const record = scratch<IwarpProps>();
         std::strcpy(record->module, "iw_zfab4");
         record->change_mask = KX_IWARP_CRC_ENABLED;
         ignore(SetIwarpProps(record));
     }},
    {"SetPortParam",
     [] {
         auto* const port = scratch<PortInfo>();
         port->settings = settings();
         ignore(SetPortParam(port, q4_location, 1));
     }},
    {"Set_q4config_property_with_Default_Settings",
     [] { Set_q4config_property_with_Default_Settings(scratch<void>()); }},
    {"adapter_list_free",
     [] {
         ignore(adapter_list_free(static_cast<AdapterRecord*>(std::calloc(1, sizeof(AdapterRecord)))));
     }},
    {"adapterinfo_list_free",
     [] {
         ignore(adapterinfo_list_free(static_cast<AdapterInfoRecord*>(std::calloc(1, sizeof(AdapterInfoRecord)))));
     }},
    {"atohex", [] { ignore(atohex("fe")); }},
    {"checkLinkStatus", [] { ignore(checkLinkStatus(kPort)); }},
    {"cleanup_and_exit", [] { ignore(cleanup_and_exit(0)); }},
    {"connect_to_hba", [] { const Window window(places.q3); }, kWindowStays},
    {"connect_to_hba_Q4", [] { const Window window(places.q4); }, kWindowStays},
    {"copy_vpd_fields",
     [] {
         uint32_t count = 0;
         auto* const entries = scratch<KxVpdEntry>();
         entries[0] = {KX_VPD_PRODUCT, "product"};
         count = 1;
         copy_vpd_fields(entries, count, scratch<char>() + 4096);
     }},
    {"disconnect_from_hba", [] { disconnect_from_hba(places.q4); }},
    {"eeprom2sercfg_Q3",
     [] { eeprom2sercfg_Q3(scratch<char>(), scratch<char>() + KX_Q3_EEPROM_SIZE); }},
    {"eeprom2sercfg_Q4",
     [] { eeprom2sercfg_Q4(scratch<char>(), scratch<char>() + KX_Q4_EEPROM_SIZE); }},
    {"eeprom2vpd_Q3",
     [] { eeprom2vpd_Q3(scratch<char>(), scratch<char>() + KX_Q3_EEPROM_SIZE); }},
    {"eeprom2vpd_Q4",
     [] { eeprom2vpd_Q4(scratch<char>(), scratch<char>() + KX_Q4_EEPROM_SIZE); }},
    {"eeprom_rd_all_Q3",
     [] { eeprom_rd_all_Q3(places.q3, vpd_cap(places.q3), scratch<void>()); }},
    {"eeprom_rd_all_Q4",
     [] { eeprom_rd_all_Q4(places.q4, vpd_cap(places.q4), scratch<void>()); }},
    {"erase_hba_settings",
     [] {
         ignore(erase_hba_settings(places.q3));
         disconnect_from_hba(places.q3);  // it opens the window itself, and leaves it open
     },
     kWindowStays},
    {"erase_option_rom", [] { ignore(erase_option_rom(places.q3)); }, kWindowStays},
    {"executeCommand", [] { ignore(executeCommand("echo one; echo two")); }},
    {"findMac", [] { ignore(findMac(q4_location, scratch<char>())); },
     "the inventory that it builds"},
    {"find_pci_capability", [] { ignore(find_pci_capability(places.q4, KX_VPD_CAPABILITY)); }},
    {"freelist",
     [] {
         DriverEntry* first = nullptr;
         ignore(getDriverInfo(&first));
         freelist(first);
     }},
    {"getAddress", [] { ignore(getAddress(kPort, scratch<PortInfo>())); }},
    {"getCardCount", [] { ignore(getCardCount()); }},
    {"getCardStats",
     [] {
         StatEntry* chain = nullptr;
         ignore(getCardStats(&chain, "toe2"));
         free_chain(chain);
     }},
    {"getDriverInfo",
     [] {
         DriverEntry* first = nullptr;
         ignore(getDriverInfo(&first));
         freelist(first);
     }},
    {"getDriverParams", [] { ignore(getDriverParams(scratch<CardParams>(), "zfab4")); }},
    {"getModinfo",
     [] {
         char name[] = "zfab4";
         ignore(getModinfo(name, scratch<char>(), scratch<char>() + 256));
     }},
    {"getPortParameters", [] { ignore(getPortParameters(kPort, scratch<PortInfo>())); }},
    {"getPortsQ4", [] { ignore(getPortsQ4("4410")); }},
    {"getQ4CardStats",
     [] {
         auto* const card = scratch<CardInfo>();
         std::strcpy(card->pci_bus_location, q4_location);
         StatEntry* const before = card->stats;
         ignore(getQ4CardStats(card));
         free_chain(card->stats == before ? nullptr : card->stats);
     }},
    {"getTOEDeviceIndex",
     [] {
         int index = 0;
         ignore(getTOEDeviceIndex(kPort, &index));
     }},
    {"getTOEparams",
     [] {
         const Inventory inventory(0);
         ignore(getTOEparams(inventory.card()));
     }},
    {"getTxRxStats",
     [] {
         auto* const port = scratch<PortInfo>();
         ignore(getTxRxStats(kPort, port));
         free_chain(port->stats);
     }},
    {"get_Q3",
     [] {
         auto* const image = scratch<char>();
         get_Q3(places.q3, vpd_cap(places.q3), image, image + KX_Q3_EEPROM_SIZE, image + 16384);
     }},
    {"get_Q4",
     [] {
         auto* const image = scratch<char>();
         get_Q4(places.q4, vpd_cap(places.q4), image, image + KX_Q4_EEPROM_SIZE, image + 49152);
     }},
    {"get_adapter_list",
     [] { list(get_adapter_list, adapter_list_free, g_KestrixAdapters); }, kWindowStays},
    {"get_adapterinfo_list",
     [] { list(get_adapterinfo_list, adapterinfo_list_free, g_KestrixAdapterInfo); },
     kWindowStays},
    {"get_chip_revision", [] { ignore(get_chip_revision(places.q4)); }},
    {"get_default_config_version", [] { ignore(get_default_config_version(KX_CLASS_Q4)); }},
    {"get_flash_params", [] { with_q4<get_flash_params>(); }, kWindowStays},
    {"get_flash_params_sf_nsec", [] { with_q4<get_flash_params_sf_nsec>(); }, kWindowStays},
    {"get_pxe_oprom_version", [] { read_q3<get_pxe_oprom_version>(); }, kWindowStays},
    {"grab_file",
     [] {
         std::size_t length = 0;
         void* const file = grab_file("/proc/self/exe", &length);
         release_file(file, length);
     }},
    {"isBondingLoaded", ask<isBondingLoaded>},
    {"isBool", [] { ignore(isBool(1)); }},
    {"isFCOELoaded", ask<isFCOELoaded>},
    {"isIscsiLoaded", ask<isIscsiLoaded>},
    {"isIscsiQ3Loaded", ask<isIscsiQ3Loaded>},
    {"isIscsiQ4Loaded", ask<isIscsiQ4Loaded>},
    {"isOffedLoaded", ask<isOffedLoaded>},
    {"isTOELoaded", ask<isTOELoaded>},
    {"isZfab3Loaded", ask<isZfab3Loaded>},
    {"isZfab4Loaded", ask<isZfab4Loaded>},
    {"isq3TOELoaded", ask<isq3TOELoaded>},
    {"isq4OffedLoaded", ask<isq4OffedLoaded>},
    {"isq4TOELoaded", ask<isq4TOELoaded>},
    {"lookupCardInfo", [] { ignore(Inventory(0).card()); }},
    {"lookupPortInCard", [] { ignore(Inventory(0).port()); }},
    {"lookupPortInfo",
     [] {
         const Inventory inventory(0);
         ignore(lookupPortInfo(inventory.list(), q4_location, 1));
     }},
    {"lsmod", [] { ignore(lsmod("zfab4")); }},
    {"msleep", [] { msleep(1); }},
    {"mx_cmd_wraper",
     [] {
         char tool[] = "zfabtool";
         char word[] = "devlist";
         char* words[] = {tool, word};
         if (InitMXBuffer() == 0) {
             g_MXdataBufferOffset = 0;
             ignore(mx_cmd_wraper(2, words));
             ignore(ReleaseMXBuffer());
         }
         g_MXdataBuffer = nullptr;
         g_MXdataBufferSize = 0;
     }},
    {"parse_vpd",
     [] {
         uint32_t count = 0;
         parse_vpd(scratch<char>(), scratch<char>() + 1024, &count);
     }},
    {"pci_config_read",
     [] {
         uint32_t value = 0;
         pci_config_read(places.q4, 0, &value);
     }},
    {"pci_config_write", [] { pci_config_write(places.q4, 0x3C, 0x24); }},
    {"q3_flash_erase_sectors", [] { with_q3<q3_flash_erase_sectors>(4, 4); }, kWindowStays},
    {"q3_flash_wait_op", [] { with_q3<q3_flash_wait_op>(5, 1); }, kWindowStays},
    {"q3_get_adapterinfo",
     [] {
         ignore(q3_get_adapterinfo(places.q3, vpd_cap(places.q3), scratch<AdapterInfoRecord>()));
     },
     kWindowStays},
    {"q3_get_dm_signature", [] { read_q3<q3_get_dm_signature>(); }, kWindowStays},
    {"q3_load_boot",
     [] { ignore(q3_load_boot(places.q3, boot_image().data(), 512)); }, kWindowStays},
    {"q3_read_flash", [] { with_q3<q3_read_flash>(0U, 4U, scratch<uint32_t>()); }, kWindowStays},
    {"q3_read_reg", [] { with_q3<q3_read_reg>(0U); }, kWindowStays},
    {"q3_read_settings", [] { read_q3<q3_read_settings>(); }, kWindowStays},
    {"q3_sf1_read", [] { with_q3<q3_sf1_read>(1U, 0, scratch<uint32_t>()); }, kWindowStays},
    {"q3_sf1_write", [] { with_q3<q3_sf1_write>(1U, 0, 4U); }, kWindowStays},
    {"q3_wait_op_done", [] { with_q3<q3_wait_op_done>(0U, 0U, 0, 5, 1); }, kWindowStays},
    {"q3_wait_op_done_val",
     [] { with_q3<q3_wait_op_done_val>(0U, 0U, 0, 5, 1, scratch<uint32_t>()); }, kWindowStays},
    {"q3_write_flash",
     [] { with_q3<q3_write_flash>(0x40000U, 4U, boot_image().data()); }, kWindowStays},
    {"q3_write_reg",
     [] {
         const Window window(places.q3);
         q3_write_reg(places.q3, 0, 0);
     },
     kWindowStays},
    {"q4_erase", [] { with_q4<q4_erase>(0x60000U, 0x10000U); }, kWindowStays},
    {"q4_erase_boot", [] { with_q4<q4_erase_boot>(); }, kWindowStays},
    {"q4_erase_config", [] { with_q4<q4_erase_config>(); }, kWindowStays},
    {"q4_flash_erase_sectors", [] { with_q4<q4_flash_erase_sectors>(6, 6); }, kWindowStays},
    {"q4_flash_wait_op", [] { with_q4<q4_flash_wait_op>(5, 1); }, kWindowStays},
    {"q4_get_adapterinfo",
     [] {
         ignore(q4_get_adapterinfo(places.q4, vpd_cap(places.q4), scratch<AdapterInfoRecord>()));
     },
     kWindowStays},
    {"q4_load_boot",
     [] { with_q4<q4_load_boot>(boot_image().data(), 0U, 512U); }, kWindowStays},
    {"q4_load_default_config", [] { with_q4<q4_load_default_config>(4U); }, kWindowStays},
    {"q4_read_flash", [] { with_q4<q4_read_flash>(0U, 4U, scratch<uint32_t>(), 0); },
     kWindowStays},
    {"q4_read_reg", [] { with_q4<q4_read_reg>(0U); }, kWindowStays},
    {"q4_sf1_read", [] { with_q4<q4_sf1_read>(1U, 0, 0, scratch<uint32_t>()); }, kWindowStays},
    {"q4_sf1_write", [] { with_q4<q4_sf1_write>(1U, 0, 0, 4U); }, kWindowStays},
    {"q4_wait_op_done", [] { with_q4<q4_wait_op_done>(0U, 0U, 0, 5, 1); }, kWindowStays},
    {"q4_wait_op_done_val",
     [] { with_q4<q4_wait_op_done_val>(0U, 0U, 0, 5, 1, scratch<uint32_t>()); }, kWindowStays},
    {"q4_write_flash",
     [] { with_q4<q4_write_flash>(0x60000U, 4U, boot_image().data(), 0); }, kWindowStays},
    {"q4_write_reg",
     [] {
         const Window window(places.q4);
         q4_write_reg(places.q4, 0, 0);
     },
     kWindowStays},
    {"q5_get_adapterinfo",
     [] {
         ignore(q5_get_adapterinfo(places.q4, vpd_cap(places.q4), scratch<AdapterInfoRecord>()));
     },
     kWindowStays},
    {"read_flash_for_boot", [] { with_q4<read_flash_for_boot>(scratch<uint32_t>()); },
     kWindowStays},
    {"read_flash_for_config", [] { with_q4<read_flash_for_config>(scratch<void>()); },
     kWindowStays},
    {"read_from_file",
     [] {
         uint32_t value = 0;
         ignore(read_from_file("/sys/module/zfab4/parameters/tx_coal", &value));
     }},
    {"read_q4biosversion_from_boot", [] { with_q4<read_q4biosversion_from_boot>(); },
     kWindowStays},
    {"readl",
     [] {
         const uint32_t word = 0;
         ignore(readl(reinterpret_cast<uint64_t>(&word)));
     }},
    {"release_file", [] { release_file(nullptr, 0); }},
    {"replacePortConfLine",
     [] { ignore(replacePortConfLine(KX_PORT_PARAMETER_FILE, "eth2.mtu = 1500\n", "eth2.mtu")); }},
    {"replaceSysctlLine",
     [] {
         ignore(replaceSysctlLine(
             KX_SYSCTL_FILE, "toe.toe0_tom.ddp", "toe.toe0_tom.ddp = 1\n", 16));
     }},
    {"resetAutoneg", set_port<resetAutoneg>},
    {"run_cmd_zfab",
     [] {
         auto* const arguments = scratch<char>();
         const uint32_t count = 1;
         std::memcpy(arguments + 32, &count, sizeof count);
         std::strcpy(arguments + 36, "devlist");
         char* output = nullptr;
         uint32_t length = 0;
         ignore(run_cmd_zfab(arguments, &output, &length));
         std::free(output);
     }},
    {"savePortParam", [] { ignore(savePortParam("mtu", "eth2", 1, 1500)); }},
    {"saveSysctlParam", [] { ignore(saveSysctlParam("/proc/sys/toe/toe0_tom/ddp", 1)); }},
    {"save_hba_settings",
     [] { ignore(save_hba_settings(places.q3, scratch<void>())); }, kWindowStays},
    {"scan_hbas", [] { g_adapter_count = scan_hbas(); }},
    {"scan_vfhbas",
     [] {
         uint32_t count = 0;
         uint8_t* records = nullptr;
         ignore(scan_vfhbas(&count, &records));
         std::free(records);
     }},
    {"setCardParams",
     [] {
         const Inventory inventory(0);
         if (CardInfo* const card = inventory.card()) {
             card->params = card_block();
             ignore(setCardParams(card));
         }
     }},
    {"setCoalesce", set_port<setCoalesce>},
    {"setDriverParams",
     [] {
         CardParams block = card_block();
         ignore(setDriverParams(&block, KX_CARD_TX_COAL, "zfab4"));
     }},
    {"setLinkSettings", set_port<setLinkSettings>},
    {"setMTU", set_port<setMTU>},
    {"setOffloads", set_port<setOffloads>},
    {"setPauseParams", set_port<setPauseParams>},
    {"setPortParams",
     [] {
         const Inventory inventory(0);
         if (PortInfo* const port = inventory.port()) {
             port->settings = settings();
             ignore(setPortParams(port));
         }
     }},
    {"setRingParams", set_port<setRingParams>},
    {"setTOEParam",
     [] {
         char name[] = "ddp";
         ignore(setTOEParam(name, 0, 1, 0, 1));
     }},
    {"setTOEParams",
     [] {
         CardParams block = card_block();
         ignore(setTOEParams(&block, KX_CARD_OFFLOAD_BITS, 0));
     }},
    {"stat_lookup",
     [] {
         StatEntry entry{};
         uint64_t value = 0;
         ignore(stat_lookup(&entry, "none", &value));
     }},
    {"strToBool", [] { ignore(strToBool("1")); }},
    {"sysctlPathToKey",
     [] { ignore(sysctlPathToKey("/proc/sys/toe/toe0_tom/ddp", scratch<char>(), 256)); }},
    {"trim",
     [] {
         char text[] = " text";
         ignore(trim(text));
     }},
    {"vpd_chksum_Q3", [] { vpd_chksum_Q3(scratch<void>()); }},
    {"vpd_chksum_Q4", [] { vpd_chksum_Q4(scratch<void>()); }},
    {"vpd_init_Q3", [] { vpd_init_Q3(scratch<void>()); }},
    {"vpd_init_Q4", [] { vpd_init_Q4(scratch<void>()); }},
    {"vpd_read_dword",
     [] {
         uint32_t dword = 0;
         vpd_read_dword(places.q4, vpd_cap(places.q4), 0x400, &dword);
     }},
    {"vpd_rw_check", [] { ignore(vpd_rw_check(places.q4, vpd_cap(places.q4))); }},
    {"vpd_setup", [] { ignore(vpd_cap(places.q4)); }},
    {"write_flash_for_config",
     [] { with_q4<write_flash_for_config>(scratch<void>()); }, kWindowStays},
    {"writel",
     [] {
         uint32_t word = 0;
         writel(1, reinterpret_cast<uint64_t>(&word));
     }},
    {"writel_Q4",
     [] {
         uint32_t word = 0;
         writel_Q4(1, reinterpret_cast<uint64_t>(&word));
     }},
    {"zfabtool_devup", [] { ignore(zfabtool_devup(kPort)); }},
});

}  // namespace

std::span<const EntryPoint> entry_points() { return kEntryPoints; }

Lab::Lab() : attached_(host_.attach()) {
    kxsim::load_scenario(host_, kxsim::find_scenario("lab"));
    prepare();
}

void Lab::prepare() {
    const uint8_t count = scan_hbas();
    for (uint8_t adapter = 0; adapter < count; ++adapter) {
        const int32_t generation = get_chip_revision(adapter);
        places.q3 = generation == 3 ? adapter : places.q3;
        places.q4 = generation == 4 ? adapter : places.q4;
    }
    g_adapter_count = count;
}

Silence::Silence() : output_(dup(STDOUT_FILENO)), error_(dup(STDERR_FILENO)) {
    std::fflush(stdout);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

Silence::~Silence() {
    std::fflush(stdout);
    dup2(output_, STDOUT_FILENO);
    dup2(error_, STDERR_FILENO);
    close(output_);
    close(error_);
}

Held held(const kxsim::Host& host) {
    namespace fs = std::filesystem;
    std::size_t mappings = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        mappings += line.find(host.root() + "/tree/") != line.npos ? 1 : 0;
    }
    maps.close();
    const auto entries = fs::directory_iterator("/proc/self/fd");
    return {static_cast<std::size_t>(std::distance(begin(entries), end(entries))), mappings};
}

}  // namespace test
