// The output of kxctl on the included scenarios, compared with the files in golden/. After an
// intended change, KXCTL_UPDATE_GOLDEN=1 in front of this program writes them again; read the diff.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "kxctl/process.hpp"
#include "support/file_text.hpp"

namespace {

struct Row {
    const char* file;
    std::vector<std::string> words;
    int exit = 0;
};

std::ostream& operator<<(std::ostream& stream, const Row& row) { return stream << row.file; }

const Row kRows[] = {
    {"help.txt", {"--help"}},
    {"version.txt", {"version"}},
    {"card_list.txt", {"--sim", "card", "list"}},
    {"card_list_json.txt", {"--sim", "card", "list", "--json"}},
    {"card_list_colour.txt", {"--sim", "card", "list", "--color", "always"}},
    {"card_list_nic_only_q3.txt", {"--sim", "nic-only-q3", "card", "list"}},
    {"card_list_many_ports.txt", {"--sim", "many-ports", "card", "list"}},
    {"card_list_empty.txt", {"--sim", "empty", "card", "list"}, 3},
    {"card_list_guest_json.txt", {"--sim", "guest-vfs-only", "card", "list", "--json"}, 3},
    {"card_list_no_driver_json.txt", {"--sim=no-driver", "card", "list", "--json"}, 3},
    {"card_list_no_driver_verbose.txt", {"--sim=no-driver", "card", "list", "-v"}, 3},
    {"card_stats_q3.txt", {"--sim", "card", "stats", "05:00.0"}},
    {"card_stats_q5_json.txt", {"--sim", "card", "stats", "03:00.4", "--json"}},
    {"port_list_q5.txt", {"--sim", "port", "list", "03:00.4"}},
    {"port_list_q5_json.txt", {"--sim", "port", "list", "03:00.4", "--json"}},
    {"port_list_q4.txt", {"port", "list", "04:00.4", "--sim", "lab"}},
    {"port_list_q4_colour.txt", {"port", "list", "04:00.4", "--sim", "--color=always"}},
    {"port_list_q3.txt", {"port", "list", "--sim", "05:00.0"}},
    {"port_list_unknown_json.txt", {"--sim", "port", "list", "--json", "--", "-x"}, 3},
    {"port_show.txt", {"--sim", "port", "show", "03:00.4", "1"}},
    {"port_show_down_colour.txt", {"--sim", "port", "show", "04:00.4", "4", "--color=always"}},
    {"port_show_json.txt", {"--sim", "port", "show", "03:00.4", "1", "--json"}},
    {"port_show_unknown_json.txt", {"--sim", "port", "show", "03:00.4", "7", "--json"}, 3},
    {"port_stats.txt", {"--sim", "port", "stats", "03:00.4", "1"}},
    {"port_stats_json.txt", {"--sim", "port", "stats", "03:00.4", "1", "-j"}},
    {"offload_show.txt", {"--sim", "offload", "show", "03:00.4"}},
    {"offload_show_json.txt", {"--sim", "offload", "show", "04:00.4", "--json"}},
    {"offload_show_nic_only.txt", {"--sim", "nic-only-q3", "offload", "show", "05:00.0"}, 14},
    {"flash_info_q5.txt", {"--sim", "flash", "info", "03:00.4"}},
    {"flash_info_q4_json.txt", {"--sim", "flash", "info", "04:00.4", "--json"}},
    {"flash_info_q3.txt", {"--sim", "flash", "info", "05:00.0"}},
    {"flash_info_colour.txt", {"--sim", "flash", "info", "05:00.0", "--color=always"}},
    {"flash_info_unknown_json.txt", {"--sim", "flash", "info", "09:00.0", "--json"}, 3},
    {"flash_config_show_q5.txt", {"--sim", "flash", "config-show", "03:00.4"}},
    {"flash_config_show_q5_json.txt", {"--sim", "flash", "config-show", "03:00.4", "--json"}},
    {"flash_config_show_q3.txt", {"--sim", "flash", "config-show", "05:00.0"}},
    {"flash_config_show_none.txt", {"--sim", "nic-only-q3", "flash", "config-show", "05:00.0"}, 3},
    {"flash_config_default.txt",
     {"--sim", "flash", "config-default", "03:00.4", "--yes", "--no-backup"}},
    {"flash_config_default_q3_json.txt",
     {"--sim", "flash", "config-default", "05:00.0", "--yes", "--no-backup", "--json"}},
    {"flash_erase_boot_plan.txt",
     {"--sim", "flash", "erase-boot", "04:00.4", "--dry-run", "--backup", "old.bin"}},
    {"adapter_list.txt", {"--sim", "adapter", "list"}},
    {"adapter_list_json.txt", {"--sim", "adapter", "list", "--json"}},
    {"adapter_list_damaged.txt", {"--sim", "damaged-vpd", "adapter", "list"}, 4},
    {"adapter_list_empty.txt", {"--sim", "empty", "adapter", "list"}, 3},
    {"adapter_show_q3.txt", {"--sim", "adapter", "show", "05:00.0"}},
    {"adapter_show_q3_json.txt", {"--sim", "adapter", "show", "05:00.0", "--json"}},
    {"adapter_show_q4.txt", {"--sim", "adapter", "show", "04:00.4"}},
    {"adapter_show_q5_json.txt", {"--sim", "adapter", "show", "03:00.4", "--json"}},
    {"adapter_show_no_vpd.txt", {"--sim", "damaged-vpd", "adapter", "show", "07:00.4"}},
    {"adapter_show_unknown_json.txt", {"--sim", "adapter", "show", "09:00.4", "--json"}, 3},
    {"vpd_show_q3.txt", {"--sim", "vpd", "show", "05:00.0"}},
    {"vpd_show_q4.txt", {"--sim", "vpd", "show", "04:00.4"}},
    {"vpd_show_q5.txt", {"--sim", "vpd", "show", "03:00.4"}},
    {"vpd_show_q5_json.txt", {"--sim", "vpd", "show", "03:00.4", "--json"}},
    {"vpd_show_erased.txt", {"--sim", "damaged-vpd", "vpd", "show", "02:00.4"}, 4},
    {"vpd_show_lengths.txt", {"--sim", "damaged-vpd", "vpd", "show", "03:00.4"}, 4},
    {"vpd_show_torn_colour.txt",
     {"--sim", "damaged-vpd", "vpd", "show", "04:00.4", "--color=always"},
     4},
    {"vpd_show_keywords.txt", {"--sim", "damaged-vpd", "vpd", "show", "05:00.4"}, 4},
    {"vpd_show_no_capability.txt", {"--sim", "damaged-vpd", "vpd", "show", "07:00.4"}, 14},
    {"vpd_show_forgetful_json.txt", {"--sim=damaged-vpd", "vpd", "show", "08:00.4", "-j"}, 1},
    {"module_list.txt", {"--sim=lab", "module", "list"}},
    {"module_list_json.txt", {"--sim=lab", "module", "list", "-j"}},
    {"vm_list.txt", {"--sim", "vm", "list"}},
    {"vm_list_colour.txt", {"--sim", "vm", "list", "--color", "always"}},
    {"vm_list_json.txt", {"--sim", "vm", "list", "--json"}},
    {"vm_list_empty.txt", {"--sim", "empty", "vm", "list"}},
    {"vm_start.txt", {"--sim", "vm", "start", "web2"}},
    {"vm_suspend_json.txt", {"--sim", "vm", "suspend", "web1", "--json"}},
    {"vm_resume_refused.txt", {"--sim", "vm", "resume", "web1"}, 1},
    {"vm_shutdown_unknown_json.txt", {"--sim", "vm", "shutdown", "web9", "--json"}, 3},
    {"vf_list.txt", {"--sim", "vf", "list"}},
    {"vf_list_json.txt", {"--sim", "vf", "list", "-j"}},
    {"vf_list_of_machine.txt", {"--sim", "vf", "list", "db1"}},
    {"vf_list_of_machine_json.txt", {"--sim", "vf", "list", "2", "-j"}},
    {"vf_attach.txt", {"--sim", "vf", "attach", "web1", "04:01.7"}},
    {"vf_attach_held.txt", {"--sim", "vf", "attach", "web1", "04:01.1"}, 1},
    {"vf_detach.txt", {"--sim", "vf", "detach", "web2", "04:01.3"}},
    {"vf_detach_json.txt", {"--sim", "vf", "detach", "db1", "04:01.2", "-j"}},
    {"bridge_list.txt", {"--sim", "bridge", "list", "web1"}},
    {"bridge_list_json.txt", {"--sim", "bridge", "list", "batch1", "-j"}},
    {"bridge_detach.txt", {"--sim", "bridge", "detach", "web1", "testnet0"}},
    {"bridge_attach_refused.txt", {"--sim", "bridge", "attach", "web1", "br9"}, 1},
};

// Both outputs and the exit code, as one text.
std::string transcript(const Row& row, const test::Result& result) {
    std::string text = "$ kxctl";
    for (const std::string& word : row.words) {
        text += " " + word;
    }
    text += "\n" + result.out;
    if (!result.err.empty()) {
        text += "--- standard error\n" + result.err;
    }
    if (result.exit != 0) {
        text += "--- exit code " + std::to_string(result.exit) + "\n";
    }
    return text;
}

class Golden : public testing::TestWithParam<Row> {};

TEST_P(Golden, OutputIsAsKept) {
    const Row& row = GetParam();
    const std::string path = std::string(KXCTL_GOLDEN_DIRECTORY) + "/" + row.file;
    const test::Result result = test::run(row.words);
    if (std::getenv("KXCTL_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(path, std::ios::binary) << transcript(row, result);
    }
    EXPECT_EQ(transcript(row, result), test::file_text(path));
    EXPECT_EQ(result.exit, row.exit);
}

INSTANTIATE_TEST_SUITE_P(Rows, Golden, testing::ValuesIn(kRows));

}  // namespace
