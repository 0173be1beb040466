// The default wrapper of the maker's command-line tool: runs "zfabtool" from PATH without a shell
// and collects its standard output in the management buffer.
#include <kxlinhw/host.h>
#include <kxlinhw/query.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "host/child.hpp"
#include "support/handle.hpp"
#include "support/text.hpp"

namespace {

constexpr std::size_t kArgumentWidth = 64;  // the texts are fields of the agent's argument block

std::vector<std::string> texts_of(int count, char** arguments) {
    std::vector<std::string> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        texts.emplace_back(kx::field_text(arguments[k], kArgumentWidth));
    }
    return texts;
}

bool make_room() { return g_MXdataBufferOffset < g_MXdataBufferSize || ReallocMXbuffer() == 0; }

// Read the whole output of the tool into the management buffer.
bool collect(const kx::Descriptor& in) {
    while (g_MXdataBuffer != nullptr && make_room()) {
        const auto room = static_cast<std::size_t>(g_MXdataBufferSize - g_MXdataBufferOffset);
        const ssize_t got = read(in.get(), g_MXdataBuffer + g_MXdataBufferOffset, room);
        if (got == 0) {
            return true;
        }
        if (got > 0) {
            g_MXdataBufferOffset += static_cast<int32_t>(got);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return false;
}

}  // namespace

extern "C" __attribute__((weak)) int mx_cmd_wraper(int count, char** arguments) try {
    if (count < 1 || arguments == nullptr) {
        return -1;
    }
    kx::host::Child child;
    bool complete = false;
    {
        kx::host::PipeEnds pipe = kx::host::open_pipe();
        if (!pipe) {
            return -1;
        }
        kx::host::SpawnPlan plan;
        plan.redirect(pipe.write, STDOUT_FILENO);
        const bool started = child.start(plan, texts_of(count, arguments));
        pipe.write = kx::Descriptor();
        complete = started && collect(pipe.read);
    }  // after a failed collection a tool that still writes gets a closed pipe instead of a
       // deadlock
    const auto status = child.wait();
    const bool ended_well = status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0;
    return complete && ended_well ? 0 : -1;
} catch (const std::bad_alloc&) {
    return -1;
}
