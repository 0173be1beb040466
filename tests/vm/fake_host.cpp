#include "vm/fake_host.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/file_text.hpp"
#include "vm/allocator.hpp"

namespace test {

FakeDomain& FakeHost::add(FakeDomain domain) {
    domains.push_back(std::move(domain));
    return domains.back();
}

std::map<std::string, int> FakeHost::counts() const {
    std::map<std::string, int> counts;
    for (const std::string& entry : journal) {
        ++counts[entry.substr(0, entry.find(' '))];
    }
    return counts;
}

std::vector<std::string> FakeHost::logged() const {
    std::vector<std::string> messages;
    for (const std::string& entry : journal) {
        if (entry.starts_with("log ")) {
            EXPECT_TRUE(entry.starts_with("log 2 4 ")) << entry;
            messages.push_back(entry.substr(8));
        }
    }
    return messages;
}

std::vector<std::string> FakeHost::commands() const {
    std::vector<std::string> commands;
    for (const std::string& entry : journal) {
        if (entry.starts_with("run ")) {
            commands.push_back(entry.substr(4));
        }
    }
    return commands;
}

int FakeHost::texts_released() const {
    int released = 0;
    for (const void* text : given_texts) {
        released += is_watched(text) ? 0 : 1;
    }
    return released;
}

FakeHost& host() {
    static FakeHost the_host;
    return the_host;
}

virDomainPtr handle(FakeDomain& domain) { return reinterpret_cast<virDomainPtr>(&domain); }

std::string digits(const Uuid& uuid) {
    std::string text;
    for (const unsigned char byte : uuid) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

Uuid numbered_uuid(int k) {
    Uuid uuid;
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        uuid[i] = static_cast<unsigned char>(static_cast<std::size_t>(k) * 16 + i + 0x80);
    }
    return uuid;
}

VmTest::VmTest() {
    host() = FakeHost();
    VMUtils::getConnection();
    vm();
    host().journal.clear();
    host().connection_calls = 0;
}

VmTest::~VmTest() {
    fail_library_allocation(0);
    free_library_blocks();
    for (void* text : host().given_texts) {
        if (is_watched(text)) {
            std::free(text);
        }
    }
    host() = FakeHost();
}

VMUtils& VmTest::vm() {
    static VMUtils object;
    return object;
}

std::string VmTest::domain_file() {
    return std::filesystem::exists("domain.xml") ? file_text("domain.xml") : "(none)";
}

void VmTest::write_domain_file(const std::string& content) {
    std::ofstream("domain.xml") << content;
}

std::string in_fresh_process(const std::function<void()>& body, bool leave_unflushed) {
    const ScratchDirectory directory;
    const std::string name = directory.write("output", "");
    const int output = open(name.c_str(), O_WRONLY);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(output, STDOUT_FILENO);
        body();
        if (!leave_unflushed || testing::Test::HasFailure()) {
            std::fflush(nullptr);
        }
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    close(output);
    std::string content = file_text(name);
    EXPECT_EQ(status, 0) << content;
    return content;
}

}  // namespace test

// Replaces the library's function, and calls it while connections are not refused.
virConnectPtr VMUtils::getConnection() {
    test::FakeHost& host = test::host();
    ++host.connection_calls;
    if (host.refuse_connection_from > 0 && host.connection_calls >= host.refuse_connection_from) {
        throw -128;
    }
    using Function = virConnectPtr();
    static auto* const next =
        reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "_ZN7VMUtils13getConnectionEv"));
    return next();
}
