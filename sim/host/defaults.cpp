#include "host/defaults.hpp"

#include <kxlinhw/export.h>

#include <cstdio>

namespace kxsim {

const std::map<std::string, std::string>& offload_defaults() {
    static const std::map<std::string, std::string> kDefaults{
        {"activated", "1"},
        {"cop_managed_offloading", "0"},
        {"ddp", "1"},
        {"ddp_push_wait", "1"},
        {"ddp_rcvcoalesce", "0"},
        {"ddp_thres", "40960"},
        {"delayed_ack", "1"},
        {"failover_alg", "0"},
        {"kseg_ddp", "0"},
        {"max_conn", "-1"},
        {"max_host_sndbuf", "49152"},
        {"max_wr", "64"},
        {"max_wr_credits", "64"},
        {"mss", "16384"},
        {"recvmsg_spin_us", "0"},
        {"rx_credit_thres", "15360"},
        {"soft_backlog_limit", "0"},
        {"tx_hold_thres", "0"},
        {"zcopy_sendmsg_copy", "0"},
        {"zcopy_sendmsg_partial_copy", "40960"},
        {"zcopy_sendmsg_partial_thres", "40960"},
        {"zcopy_sendmsg_ret_pending_dma", "0"},
        {"zcopy_sendmsg_thres", "0"},
    };
    return kDefaults;
}

std::string pci_names() {
    char maker[64];
    std::snprintf(maker, sizeof maker, "%04x  Kestrix Communications\n", KESTRIX_PCI_VENDOR_ID);
    return std::string(
               "1af4  Red Hat, Inc.\n"
               "\t1041  Virtio 1.0 network device\n") +
           maker +
           "\t0030  Q310-CR single-port 10GbE adapter\n"
           "\t0031  Q320-CR dual-port 10GbE adapter\n"
           "\t4410  Q404-CR quad-port 10GbE adapter\n"
           "\t4810  Q404-CR quad-port 10GbE adapter [VF]\n"
           "\t5410  Q520-CR dual-port 40GbE adapter\n"
           "\t5810  Q520-CR dual-port 40GbE adapter [VF]\n"
           "8086  Intel Corporation\n"
           "\t1237  440FX - 82441FX PMC [Natoma]\n"
           "\t1533  I210 Gigabit Network Connection\n"
           "C 02  Network controller\n"
           "\t00  Ethernet controller\n"
           "C 06  Bridge\n"
           "\t00  Host bridge\n";
}

}  // namespace kxsim
