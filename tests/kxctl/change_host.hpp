// A host with a port that a change gives other settings.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "kxctl/on_host.hpp"

namespace test {

inline constexpr char kChangeJournal[] = "/var/lib/kxctl/changes/host";
inline constexpr char kSavedSettings[] = "/etc/kestrix-plexo/kxportparams.conf";
inline constexpr char kSavedInterfaces[] = "/etc/kestrix-plexo/kxctl-interfaces";
inline constexpr char kChangedMac[] = "02:00:00:00:00:02";
inline constexpr unsigned kOldRing = 1024;
inline constexpr char kOldSettings[] = "# \xFF kept\neth3.mtu = 1600\n";

class ChangeHost {
public:
    ChangeHost() {
        host.module({.name = "zfab4", .loaded = true});
        host.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {{.name = "eth3"}, {.name = "eth2", .mac = kChangedMac}}});
        begin_again();
    }

    // The settings, files and journal that it had first.
    void begin_again() {
        kxsim::Interface port{.name = "eth2", .mac = kChangedMac};
        port.nic.rings.rx_pending = kOldRing;
        host.remove_interface("eth2");
        host.port("03:00.4", port);
        host.file(kSavedSettings, kOldSettings, 0640);
        for (const char* const path : {kSavedInterfaces, "/var/lib/kxctl"}) {
            if (host.exists(path)) {
                host.remove(path);
            }
        }
    }

    static std::vector<std::string> words() {
        return {"port", "set", "eth2", "mtu=9000", "tso=off", "ring_rx=512"};
    }

    [[nodiscard]] bool is_as_before() const {
        return host.mtu("eth2") == 1500 && host.nic("eth2").tso == 1 &&
               host.nic("eth2").rings.rx_pending == kOldRing && saved() == kOldSettings &&
               !host.exists(kSavedInterfaces);
    }
    [[nodiscard]] bool is_as_wanted() const {
        return host.mtu("eth2") == 9000 && host.nic("eth2").tso == 0 &&
               host.nic("eth2").rings.rx_pending == 512 &&
               saved() == std::string(kOldSettings) +
                              "eth2.mtu = 9000\neth2.tcpoffload = 0\neth2.ring_rx = 512\n" &&
               host.exists(kSavedInterfaces);
    }
    // What differs, for messages of tests.
    [[nodiscard]] std::string text() const {
        return "mtu " + std::to_string(host.mtu("eth2")) + ", tso " +
               std::to_string(host.nic("eth2").tso) + ", ring " +
               std::to_string(host.nic("eth2").rings.rx_pending) + ", interfaces " +
               (host.exists(kSavedInterfaces) ? "saved" : "not saved") + ", settings:\n" +
               (host.exists(kSavedSettings) ? host.read(kSavedSettings) : "none");
    }
    [[nodiscard]] bool is_open() const {
        return host.exists(std::string(kChangeJournal) + "/open");
    }

    kxsim::Host host;

private:
    [[nodiscard]] std::string saved() const {
        return host.exists(kSavedSettings) ? host.read(kSavedSettings) : "";
    }
};

}  // namespace test
