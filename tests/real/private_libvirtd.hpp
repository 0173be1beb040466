// A private libvirtd with the QEMU driver, and a guest that is a few instructions long.
//
// It runs in namespaces of its own (mounts, network, processes), which end with the test program,
// even when that is killed: no process, bridge or mount is left.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

namespace test {

inline bool wait_until(
    const std::function<bool()>& condition, std::chrono::seconds limit = std::chrono::seconds(90)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

class PrivateLibvirtd {
public:
    static constexpr char kBridge[] = "kxbr0";

    // Why this machine cannot run one; empty when it can.
    static std::string missing() {
        if (geteuid() != 0) {
            return "namespaces and guests need root";
        }
        for (const char* tool : {"libvirtd", "virsh", "qemu-system-x86_64", "unshare", "ip"}) {
            if (shell(std::string("command -v ") + tool).status != 0) {
                return std::string(tool) + " is not installed";
            }
        }
        if (access("/dev/net/tun", R_OK | W_OK) != 0) {
            return "no /dev/net/tun for the guests' interfaces";
        }
        const auto tried = shell(
            "unshare --mount --net --pid --fork --mount-proc sh -c"
            " 'ip link add kxbr0 type bridge && ip tuntap add kxtap0 mode tap' 2>&1");
        return tried.status == 0 ? "" : "no namespaces with bridges in them: " + tried.output;
    }

    PrivateLibvirtd() {
        write_guest();
        start();
        setenv("LIBVIRT_DEFAULT_URI", uri().c_str(), 1);
        answers_ = wait_until([this] {
            return waitpid(pid_, nullptr, WNOHANG) != 0 ||
                   shell("virsh version >/dev/null 2>&1").status == 0;
        });
        namespace_ = namespace_of(std::to_string(pid_), "pid_for_children");
        if (namespace_ == namespace_of("self", "pid")) {
            namespace_.clear();  // it ended before it had one
        }
    }
    ~PrivateLibvirtd() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        wait_until([this] { return processes() == 0; });
    }
    PrivateLibvirtd(const PrivateLibvirtd&) = delete;
    PrivateLibvirtd& operator=(const PrivateLibvirtd&) = delete;

    [[nodiscard]] bool answers() const { return answers_ && processes() > 1; }
    // Its messages, for a start that failed.
    [[nodiscard]] std::string log() const {
        return file_text(directory_ / "start.log") + file_text(directory_ / "libvirtd.log");
    }
    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] const std::filesystem::path& directory() const { return directory_.path(); }
    [[nodiscard]] std::string uri() const {
        return "qemu:///system?socket=" + directory_ / "libvirt-sock";
    }

    // The name of its process namespace, valid while a process is in it.
    [[nodiscard]] const std::string& process_namespace() const { return namespace_; }
    [[nodiscard]] int processes() const { return processes_in(namespace_); }
    static int processes_in(const std::string& process_namespace) {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            const std::string name = entry.path().filename();
            if (!process_namespace.empty() && name.find_first_not_of("0123456789") == name.npos &&
                namespace_of(name, "pid") == process_namespace) {
                ++count;
            }
        }
        return count;
    }

    // A domain's description: software emulation, 16 MiB, the guest's floppy, no network. `devices`
    // are added after its own.
    [[nodiscard]] std::string description(
        const std::string& name, const std::string& uuid, const std::string& devices = "") const {
        return "<domain type='qemu'><name>" + name + "</name><uuid>" + uuid +
               "</uuid><memory unit='MiB'>16</memory><vcpu>1</vcpu>"
               "<os><type arch='x86_64' machine='pc'>hvm</type><boot dev='fd'/></os>"
               "<features><acpi/></features><devices>"
               "<emulator>/usr/bin/qemu-system-x86_64</emulator>"
               "<disk type='file' device='floppy'><driver name='qemu' type='raw'/><source file='" +
               guest_image().string() +
               "'/><target dev='fda'/><readonly/></disk>"
               "<serial type='file'><source path='" +
               serial_log(uuid).string() +
               "'/></serial>"
               "<controller type='usb' model='none'/><memballoon model='none'/>" +
               devices + "</devices></domain>";
    }

    // How often the guest has booted since its domain started: it writes a letter each time.
    [[nodiscard]] std::size_t boots(const std::string& uuid) const {
        return file_text(serial_log(uuid)).size();
    }

    void forget_boots(const std::string& uuid) const { std::filesystem::remove(serial_log(uuid)); }

private:
    // A boot sector: writes 'B' to the serial line, then waits for the power button and powers off.
    static constexpr std::array<unsigned char, 34> kGuest = {
        0xFA,                    // cli
        0xBA, 0xF8, 0x03,        // mov dx, 3F8h     serial line
        0xB0, 'B',  0xEE,        // mov al, 'B'; out dx, al
        0xBA, 0x02, 0x06,        // mov dx, 602h     power management: enabled events
        0xB8, 0x00, 0x01, 0xEF,  // mov ax, 100h; out dx, ax     the power button
        0xFB,                    // sti
        0xF4,                    // wait: hlt        until the next tick of the timer
        0xBA, 0x00, 0x06,        // mov dx, 600h     events that happened
        0xED,                    // in ax, dx
        0xF6, 0xC4, 0x01,        // test ah, 1
        0x74, 0xF6,              // jz wait
        0xBA, 0x04, 0x06,        // mov dx, 604h     control
        0xB8, 0x00, 0x20, 0xEF,  // mov ax, 2000h; out dx, ax    off
        0xEB, 0xED,              // jmp wait
    };

    // Empty for a process that has ended.
    static std::string namespace_of(const std::string& process, const char* kind) {
        std::error_code gone;
        return std::filesystem::read_symlink("/proc/" + process + "/ns/" + kind, gone);
    }

    [[nodiscard]] std::filesystem::path guest_image() const { return directory_ / "guest.img"; }
    [[nodiscard]] std::filesystem::path serial_log(const std::string& uuid) const {
        return directory_ / ("serial-" + uuid);
    }

    void write_guest() const {
        std::string floppy(1474560, '\0');
        std::copy(kGuest.begin(), kGuest.end(), floppy.begin());
        floppy[510] = '\x55';
        floppy[511] = '\xAA';
        std::ofstream(guest_image(), std::ios::binary) << floppy;
    }

    void start() {
        const std::string script = KX_REAL_TESTS "/private_libvirtd.sh";
        const std::string log = directory_ / "start.log";
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int output = open(log.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            if (getppid() == parent) {
                execlp(
                    "unshare", "unshare", "--mount", "--net", "--pid", "--fork", "--mount-proc",
                    "--kill-child=KILL", "bash", script.c_str(), directory_.path().c_str(), kBridge,
                    static_cast<char*>(nullptr));
            }
            _exit(127);
        }
    }

    ScratchDirectory directory_;
    pid_t pid_ = -1;
    bool answers_ = false;
    std::string namespace_;
};

}  // namespace test
