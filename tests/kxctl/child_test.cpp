// Programs that are run for their output.
#include "cli/child.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "support/output.hpp"

namespace {

using kx::ctl::Descriptor;
using std::chrono::milliseconds;
using testing::HasSubstr;

struct Collected {
    std::string text;
    bool operator()(const Descriptor& in) {
        std::array<char, 64> chunk;
        text.append(chunk.data(), static_cast<std::size_t>(read(in.get(), chunk.data(), 64)));
        return true;
    }
};

int run_script(
    const std::string& script, Collected& output, milliseconds limit = kx::ctl::time_limit()) {
    return kx::ctl::run_child({"/bin/sh", "-c", script}, std::ref(output), limit);
}

TEST(Child, GivesItsOutputAndItsExitStatus) {
    Collected output;
    EXPECT_EQ(run_script("echo one; sleep 0.05; echo two; exit 7", output), 7);
    EXPECT_EQ(output.text, "one\ntwo\n");
    EXPECT_EQ(run_script("kill -9 $$", output), 128 + 9);
    Collected much;
    EXPECT_EQ(run_script("seq 20000", much), 0);
    EXPECT_EQ(much.text.size(), 108894U);
}

TEST(Child, IsKilledWithItsOwnChildrenWhenItTakesTooLong) {
    for (const std::string script :
         {"echo before; sleep 60; true", "sleep 60 & sleep 60; true", "exec >&-; sleep 60; true",
          "trap '' TERM INT HUP; sleep 60; true"}) {
        Collected output;
        EXPECT_EQ(
            test::told(
                [&] { EXPECT_EQ(run_script(script, output, milliseconds(200)), -1) << script; }),
            "kxctl: Killed after 0.2 seconds: " + script + "\n");
    }
}

TEST(Child, ThatCannotBeStartedIsNotRun) {
    Collected output;
    EXPECT_EQ(kx::ctl::run_child({"/no/such/program"}, std::ref(output)), -1);
}

TEST(Child, IsStoppedByItsReader) {
    EXPECT_EQ(kx::ctl::run_child({"yes"}, [](const Descriptor&) { return false; }), -1);
}

}  // namespace
