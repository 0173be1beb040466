// An agent that supplies its own services. The library logs, runs shell commands and starts the
// maker's tool through functions for which it has weak default definitions. When an agent defines
// these functions in the program itself, the library calls those instead.
//
// This agent writes the library's messages to its own log, logs every shell command before it runs,
// and never starts the maker's tool.
#include <kxlinhw/host.h>
#include <kxlinhw/kxlinhw.h>
#include <kxlinhw/vmutils.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace {

// The agent's log: one line on standard error for each message; it begins with the priority, as
// syslog and systemd expect.
void log_line(int priority, const std::string& text) {
    std::fprintf(stderr, "<%d>agent: %s\n", priority, text.c_str());
}

int priority_of(LogType type) {
    switch (type) {
        case KX_LOG_DEBUG:
            return 7;
        case KX_LOG_INFO:
            return 6;
        case KX_LOG_WARNING:
            return 4;
        case KX_LOG_ERROR:
        case KX_LOG_FAILURE:
            break;
    }
    return 3;
}

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

}  // namespace

// The logger. Format and values are those of printf.
void KxLogger::KestrixLogMsg(ModName module, LogType type, const char* format, ...) {
    std::array<char, 512> message{};  // a longer one is cut
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(message.data(), message.size(), format, values);
    va_end(values);
    log_line(
        priority_of(type),
        "[library " + std::to_string(static_cast<int>(module)) + "] " + message.data());
}

// The library names the origin of some messages by a service number; this agent uses the same
// numbers for its modules.
ModName KxLogger::MapSVCToModName(int service) { return static_cast<ModName>(service); }

// The command runner. The library reaches it through BridgeUtils::getControl().
BridgeUtils* BridgeUtils::ctrl = nullptr;

// The library reads what virsh and lspci print, in English.
int BridgeUtils::getOutput(std::string command, std::string& output) {
    log_line(6, "runs: " + command);
    const std::string untranslated = "export LC_ALL=C; " + std::move(command);
    std::FILE* const pipe = popen(untranslated.c_str(), "re");
    if (pipe == nullptr) {
        return -1;
    }
    std::array<char, 4096> chunk;
    while (const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        output.append(chunk.data(), got);
    }
    return pclose(pipe);  // 0 when the command succeeded
}

// The wrapper of the maker's tool: this agent refuses to run it.
int mx_cmd_wraper(int count, char** arguments) {
    log_line(4, std::string("does not run ") + (count > 0 ? arguments[0] : "anything"));
    return -1;
}

namespace {

// Reading the parameters of a missing module logs a message through the agent.
void show_iwarp(const std::string& module) {
    IwarpProps properties{};
    module.copy(properties.module, sizeof properties.module - 1);
    std::uint32_t size = 0;
    if (GetIwarpProps(&properties, &size) == KX_SUCCESS) {
        std::printf("%s: receive window %d\n", properties.module, properties.rcv_win);
    }
}

// Finding the buses of the adapters runs lspci through the agent.
void show_buses() {
    VMUtils machines;
    std::unique_ptr<KxCardBus, FreeMemory> node(machines.getCardsInfo());
    while (node) {
        std::printf("bus %d of domain %d holds an adapter\n", node->bus, node->pciDomain);
        node.reset(node->next);
    }
}

// The block of run_cmd_zfab: a count at byte 32, texts of 64 bytes from byte 36 on.
void ask_the_tool() {
    std::array<char, 36 + 64> block{};
    const std::uint32_t count = 1;
    std::memcpy(&block[32], &count, sizeof count);
    std::string("eth2").copy(&block[36], 63);
    char* output = nullptr;
    std::uint32_t length = 0;
    run_cmd_zfab(block.data(), &output, &length);
    const std::unique_ptr<char, FreeMemory> owned(output);
    std::printf("the maker's tool printed %u bytes\n", length);
}

}  // namespace

int main() {
    show_iwarp("iw_zfab4");
    show_iwarp("iw_zfab9");
    show_buses();
    ask_the_tool();
}
