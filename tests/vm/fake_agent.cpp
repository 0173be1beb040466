// The agent's services, which write to the journal.
#include <kxlinhw/export.h>
#include <kxlinhw/host.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "vm/fake_host.hpp"

BridgeUtils* BridgeUtils::ctrl = nullptr;

int BridgeUtils::getOutput(std::string command, std::string& output) {
    test::FakeHost& host = test::host();
    EXPECT_EQ(this, ctrl) << "the runner that getControl gives";
    EXPECT_EQ(output, "");
    host.journal.push_back("run " + command);
    const test::Ran ran = host.run(command);
    output = ran.output;
    return ran.result;
}

void KxLogger::KestrixLogMsg(ModName module, LogType type, const char* format, ...) {
    std::va_list values;
    va_start(values, format);
    std::vector<char> text(100000);
    std::vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    test::host().journal.push_back(
        "log " + std::to_string(module) + " " + std::to_string(type) + " " + text.data());
    test::host().formats.emplace_back(format);
}

ModName KxLogger::MapSVCToModName(int service) {
    ADD_FAILURE() << "VMUtils names its module itself";
    return static_cast<ModName>(service);
}

extern "C" KX_EXPORT int system(const char* command) {
    test::host().journal.push_back(std::string("system ") + command);
    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    if (action.sa_handler == SIG_IGN) {
        return -1;  // as the C library's, which then gets no status
    }
    return test::host().system_result;
}
