// The run states of all machines at once. The library asks virsh for the state of one machine at a
// time, and starting virsh takes longer than everything else that a list of machines needs.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

namespace kx::ctl {

// Whether libvirt's client is installed, with which the library asks for states.
[[nodiscard]] bool has_virsh();

// While such an object exists, most of the library's questions "virsh domstate NAME" have an answer
// here: virsh lists the running and the paused machines once. All others are left to virsh.
class MachineStates {
public:
    MachineStates();
    ~MachineStates();
    MachineStates(const MachineStates&) = delete;
    MachineStates& operator=(const MachineStates&) = delete;

    // What virsh would print for a command of the library; nothing when virsh has to be asked.
    [[nodiscard]] static std::optional<std::string> answer(const std::string& command);

    // virsh was asked and printed something.
    static void note_answer(const std::string& command);
    // word: the name or the UUID in a command.
    [[nodiscard]] bool was_answered(const std::string& word) const {
        return answered_.contains(word);
    }

private:
    void read_lists();
    void read_list(const char* option, const char* state);

    bool lists_read_ = false;
    std::map<std::string, std::string, std::less<>> states_;  // by name; empty: in several lists
    std::set<std::string> answered_;                          // words of commands
};

}  // namespace kx::ctl
