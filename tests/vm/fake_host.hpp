// The environment of the library in the tests of virtual machines: a hypervisor with domains, an
// agent's command runner and logger, and a journal to which all of them write the library's calls,
// in order.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/vmutils.h>

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/output.hpp"
#include "support/scratch_directory.hpp"

namespace test {

using Uuid = std::array<unsigned char, 16>;

struct FakeDomain {
    std::string name;
    int id = -1;  // -1: defined, not running
    Uuid uuid{};
    std::string os_type = "hvm";
    std::string live{};        // the description of flags 0
    std::string inactive{};    // the description of flags 2
    bool listed_only = false;  // its name is listed, but looking it up fails
};

struct Ran {
    int result;
    std::string output;
};

struct FakeHost {
    // "virDomainLookupByID 3", "run COMMAND", "system COMMAND", "log 2 4 MESSAGE", ...
    std::vector<std::string> journal;

    std::deque<FakeDomain> domains;  // handles are the addresses of these
    // The result of a libvirt function instead of its own answer. Functions with a pointer result
    // return null, whatever the number.
    std::map<std::string, int> results;
    std::vector<std::string> defined;   // descriptions given to virDomainDefineXML
    std::vector<std::string> attached;  // descriptions given to virDomainAttachDevice
    std::vector<void*> given_texts;     // texts of virDomainGetXMLDesc, for the library to free
    std::vector<void*> define_arguments;

    std::function<Ran(const std::string& command)> run = [](const std::string&) {
        return Ran{0, ""};
    };
    int system_result = 0;
    std::function<void()> on_libvirt;  // within every call of libvirt
    std::vector<std::string> formats;  // of the log messages

    int refuse_connection_from = 0;  // the n-th call of getConnection from now on, and all after
    int connection_calls = 0;

    bool fail_initialize = false;  // XMLPlatformUtils::Initialize throws, after its work
    bool fail_parse = false;       // the DOM parser throws
    bool note_texts = false;       // Xerces' texts, made and released, into the journal

    FakeDomain& add(FakeDomain domain);
    // Names of the calls in the journal, without their arguments, counted.
    [[nodiscard]] std::map<std::string, int> counts() const;
    [[nodiscard]] std::vector<std::string> logged() const;    // messages of module 2, type 4
    [[nodiscard]] std::vector<std::string> commands() const;  // of the command runner
    [[nodiscard]] int texts_released() const;
};

// The only host, created again for each test.
FakeHost& host();

virDomainPtr handle(FakeDomain& domain);

// "uuid" as the operations take it: 32 digits without hyphens.
std::string digits(const Uuid& uuid);
Uuid numbered_uuid(int k);

// A separate working directory, and a new host. The library's connection is open; opening it is not
// in the journal.
class VmTest : public testing::Test {
protected:
    VmTest();
    ~VmTest() override;

    // One object for the program, because the class never frees its parser.
    static VMUtils& vm();

    // The content of domain.xml; "(none)" without one.
    static std::string domain_file();
    static void write_domain_file(const std::string& content);

private:
    ScratchDirectory directory_;
    WorkingDirectory working_directory_{directory_.path()};
};

// Run a body in a child process that has never opened the connection; its failures are ours.
// Returns what it printed. With `leave_unflushed`, what it did not flush itself is lost.
std::string in_fresh_process(const std::function<void()>& body, bool leave_unflushed = false);

}  // namespace test
