// An agent with its own services: the library uses them instead of its defaults.
#include <gtest/gtest.h>
#include <kxlinhw/host.h>
#include <kxlinhw/kxlinhw.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

struct Calls {
    int wrapper = 0;
    std::vector<std::string> arguments;
    std::string output = "tool output";
    std::optional<int32_t> told_size;    // of the buffer, and
    std::optional<int32_t> told_offset;  // of the output's end, right or wrong
} calls;

// As agents do it: enlarge the buffer while the output does not fit.
void write_output(const std::string& text) {
    while (g_MXdataBufferSize - g_MXdataBufferOffset < static_cast<int>(text.size())) {
        ASSERT_EQ(ReallocMXbuffer(), 0U);
    }
    std::ranges::copy(text, g_MXdataBuffer + g_MXdataBufferOffset);
    g_MXdataBufferOffset += static_cast<int>(text.size());
}

}  // namespace

BridgeUtils* BridgeUtils::ctrl = nullptr;

int BridgeUtils::getOutput(std::string command, std::string& output) {
    output = "ran: " + command;
    return 7;
}

void KxLogger::KestrixLogMsg(ModName, LogType, const char*, ...) {}

ModName KxLogger::MapSVCToModName(int service) { return static_cast<ModName>(service + 1000); }

extern "C" int mx_cmd_wraper(int count, char** arguments) {
    ++calls.wrapper;
    calls.arguments.assign(arguments, arguments + count);
    write_output(calls.output);
    g_MXdataBufferSize = calls.told_size.value_or(g_MXdataBufferSize);
    g_MXdataBufferOffset = calls.told_offset.value_or(g_MXdataBufferOffset);
    return 0;
}

namespace {

// The argument block of run_cmd_zfab: a count at byte 32, texts of 64 bytes from byte 36 on.
std::vector<char> argument_block(uint32_t count, const std::vector<std::string>& texts) {
    std::vector<char> block(36 + 64 * texts.size());
    std::memcpy(block.data() + 32, &count, sizeof count);
    for (std::size_t k = 0; k < texts.size(); ++k) {
        texts[k].copy(block.data() + 36 + 64 * k, 64);
    }
    return block;
}

std::vector<char> argument_block(const std::vector<std::string>& texts) {
    return argument_block(static_cast<uint32_t>(texts.size()), texts);
}

struct Answer {
    uint32_t status;
    std::string output;
    uint32_t length;
};

Answer run(const std::vector<char>& block) {
    char* output = nullptr;
    uint32_t length = 99;
    const uint32_t status = run_cmd_zfab(block.data(), &output, &length);
    Answer answer{status, output == nullptr ? "(null)" : std::string(output, length), length};
    std::free(output);
    return answer;
}

class OwnServices : public testing::Test {
protected:
    void SetUp() override { calls = Calls(); }
};

TEST_F(OwnServices, ToolRunsThroughTheAgentsWrapper) {
    const Answer answer = run(argument_block({"eth2", "up"}));
    EXPECT_EQ(calls.wrapper, 1);
    EXPECT_EQ(calls.arguments, (std::vector<std::string>{"zfabtool", "eth2", "up"}));
    EXPECT_EQ(answer.status, 0U);
    EXPECT_EQ(answer.output, "tool output");
    EXPECT_EQ(answer.length, 11U);
}

TEST_F(OwnServices, NineArgumentsFillTheVectorAndMoreAreLeftOut) {
    const std::vector<std::string> nine{"1", "2", "3", "4", "5", "6", "7", "8", "9"};
    run(argument_block(nine));
    ASSERT_EQ(calls.arguments.size(), 10U);
    EXPECT_EQ(calls.arguments.back(), "9");

    std::vector<std::string> twelve = nine;
    twelve.insert(twelve.end(), {"10", "11", "12"});
    run(argument_block(twelve));
    EXPECT_EQ(calls.arguments.size(), 10U);

    run(argument_block(0xFFFFFFFF, nine));
    EXPECT_EQ(calls.arguments.size(), 10U);
}

TEST_F(OwnServices, NoArgumentPassesTheToolsNameAlone) {
    run(argument_block({}));
    EXPECT_EQ(calls.arguments, (std::vector<std::string>{"zfabtool"}));
}

TEST_F(OwnServices, OutputOfFortyThousandBytesGrowsTheBufferTwice) {
    calls.output.assign(40000, 'z');
    const Answer answer = run(argument_block({"dump"}));
    EXPECT_EQ(answer.output, calls.output);
    EXPECT_EQ(g_MXdataBufferSize, 49152);
}

TEST_F(OwnServices, EveryRunStartsWithAnEmptyBuffer) {
    run(argument_block({"one"}));
    EXPECT_EQ(g_MXdataBufferOffset, 0);
    EXPECT_EQ(run(argument_block({"two"})).output, "tool output");
    EXPECT_EQ(g_MXdataBufferOffset, 0);
}

TEST_F(OwnServices, OutputOfNoBytesIsSomethingThatFreeTakes) {
    calls.output.clear();
    char* output = reinterpret_cast<char*>(1);
    uint32_t length = 99;
    EXPECT_EQ(run_cmd_zfab(argument_block({}).data(), &output, &length), 0U);
    EXPECT_EQ(length, 0U);
    EXPECT_NE(output, reinterpret_cast<char*>(1));
    std::free(output);
}

TEST_F(OwnServices, OutputEndsNoLaterThanTheBuffer) {
    struct Row {
        int32_t size;
        int32_t offset;
        std::string output;
    };
    for (const Row& row :
         {Row{16384, 4, "tool"}, {4, 11, "tool"}, {16384, -1, ""}, {0, 11, ""}, {-1, 11, ""}}) {
        calls.told_size = row.size;
        calls.told_offset = row.offset;
        EXPECT_EQ(run(argument_block({})).output, row.output) << row.size << ' ' << row.offset;
    }
}

TEST_F(OwnServices, NullArgumentsAreRefusedBeforeTheToolRuns) {
    const std::vector<char> block = argument_block({});
    char* output = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(run_cmd_zfab(nullptr, &output, &length), 317U);
    EXPECT_EQ(run_cmd_zfab(block.data(), nullptr, &length), 317U);
    EXPECT_EQ(run_cmd_zfab(block.data(), &output, nullptr), 317U);
    EXPECT_EQ(calls.wrapper, 0);
}

TEST_F(OwnServices, CommandRunnerOfTheAgentIsTheOneThatGetControlGives) {
    std::string output;
    EXPECT_EQ(BridgeUtils::getControl()->getOutput("x", output), 7);
    EXPECT_EQ(output, "ran: x");
    EXPECT_EQ(KxLogger::MapSVCToModName(4), static_cast<ModName>(1004));
}

TEST(ManagementBuffer, IsNullAndEmptyAtFirstAndGrowsInSteps) {
    EXPECT_EQ(InitMXBuffer(), 0U);
    EXPECT_EQ(g_MXdataBufferSize, 16384);
    std::memset(g_MXdataBuffer, 'a', 16384);
    EXPECT_EQ(ReallocMXbuffer(), 0U);
    EXPECT_EQ(g_MXdataBufferSize, 32768);
    EXPECT_EQ(g_MXdataBuffer[16383], 'a');
    g_MXdataBuffer[32767] = 'b';
    const char* const before = g_MXdataBuffer;
    EXPECT_EQ(ReleaseMXBuffer(), 0U);
    EXPECT_EQ(g_MXdataBuffer, before);
}

TEST(ManagementBuffer, RefusesToGrowPastItsSizeType) {
    ASSERT_EQ(InitMXBuffer(), 0U);
    char* const before = g_MXdataBuffer;
    g_MXdataBufferSize = INT32_MAX;
    EXPECT_EQ(ReallocMXbuffer(), 417U);
    EXPECT_EQ(g_MXdataBufferSize, INT32_MAX);
    EXPECT_EQ(g_MXdataBuffer, before);
    ReleaseMXBuffer();
}

TEST(ManagementBuffer, RefusesToGrowToNothing) {
    ASSERT_EQ(InitMXBuffer(), 0U);
    char* const before = g_MXdataBuffer;
    for (const int32_t size : {-16384, -16385, INT32_MIN}) {
        g_MXdataBufferSize = size;
        EXPECT_EQ(ReallocMXbuffer(), 417U);
        EXPECT_EQ(g_MXdataBuffer, before);
    }
    before[16383] = 'a';  // still there
    ReleaseMXBuffer();
}

}  // namespace
