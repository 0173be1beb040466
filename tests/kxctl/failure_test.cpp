// From library statuses to exit codes and lines on standard error.
#include "failure/failure.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/status.h>

#include <cstring>
#include <set>

namespace {

using namespace kx::ctl;
using testing::ElementsAre;
using testing::IsEmpty;

void set_detail(const char* text) { std::strncpy(errStr, text, sizeof errStr); }

TEST(StatusExitCodes, AreListedOnceInAscendingOrder) {
    std::vector<int> codes;
    for (const ExitCodeRow& row : exit_codes()) {
        codes.push_back(static_cast<int>(row.code));
        EXPECT_STRNE(row.meaning, "");
    }
    EXPECT_THAT(codes, ElementsAre(0, 1, 2, 3, 4, 5, 6, 13, 14));
}

TEST(StatusExitCodes, OfLibraryStatuses) {
    const struct {
        std::uint32_t status;
        int code;
    } rows[] = {
        {0, 0},  {1, 1},   {60, 3},   {61, 2},   {62, 3},  {63, 3}, {64, 3},
        {65, 3}, {66, 1},  {67, 3},   {68, 3},   {69, 3},  {70, 1}, {71, 14},
        {72, 3}, {273, 1}, {301, 14}, {317, 14}, {417, 1}, {2, 1},  {0xFFFFFFFF, 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(static_cast<int>(exit_code_of_status(row.status)), row.code) << row.status;
    }
}

TEST(StatusFailure, HasTheLibrarysText) {
    const Failure failure = Failure::of_status(KX_NO_SUCH_DEVICE);
    EXPECT_EQ(failure.code(), ExitCode::kNotFound);
    EXPECT_EQ(failure.status(), 65U);
    EXPECT_STREQ(failure.what(), "No device with the specified pci bus location found");
    EXPECT_EQ(failure.line(), failure.what());
    EXPECT_THAT(failure.detail(), IsEmpty());
}

TEST(StatusFailure, HasATextForEveryStatus) {
    for (const std::uint32_t status : {273U, 417U}) {
        EXPECT_STRNE(Failure::of_status(status).what(), "");
    }
    EXPECT_STREQ(Failure::of_status(999).what(), "The library returned status 999");
    EXPECT_STREQ(Failure::of_status(0xFFFFFFFF).what(), "The library returned status 4294967295");
}

TEST(StatusFailure, OfAHostWithoutAdaptersPointsToTheOtherListAndTheSimulatedHost) {
    EXPECT_EQ(
        Failure::of_status(KX_NO_CARDS).line(),
        "No Kestrix cards; \"kxctl adapter list\" also shows adapters without a driver (--sim runs "
        "the command on a simulated host)");
    EXPECT_EQ(
        Failure::of_status(KX_DRIVER_NOT_LOADED).line(),
        "Kestrix driver not loaded/installed; \"kxctl adapter list\" also shows adapters without a "
        "driver (--sim runs the command on a simulated host)");
    EXPECT_EQ(Failure::of_status(KX_NO_CARDS).what(), std::string("No Kestrix cards")) << "in JSON";
}

TEST(StatusFailure, OfSettingsCarriesTheLibrarysMessages) {
    set_detail("Set MTU for interface eth2failed: Invalid argument; Set TSO failed; ");
    const Failure failure = Failure::of_status(KX_SET_FAILED);
    EXPECT_THAT(
        failure.detail(),
        ElementsAre("Set MTU for interface eth2failed: Invalid argument", "Set TSO failed"));
    EXPECT_EQ(
        failure.line(),
        "The settings could not be applied: Set MTU for interface eth2failed: Invalid argument; "
        "Set TSO failed");
    set_detail("");
    EXPECT_EQ(Failure::of_status(KX_SET_FAILED).line(), "The settings could not be applied");
}

TEST(DetailText, IsSplitWhereMessagesEnd) {
    EXPECT_THAT(split_detail(""), IsEmpty());
    EXPECT_THAT(split_detail("; ;  "), IsEmpty());
    EXPECT_THAT(split_detail("one "), ElementsAre("one"));
    EXPECT_THAT(split_detail("one; two three;four"), ElementsAre("one", "two three", "four"));
}

TEST(Check, ThrowsOnlyForAFailure) {
    EXPECT_NO_THROW(check(KX_SUCCESS));
    EXPECT_THROW(check(KX_UNKNOWN_ERROR), Failure);
}

}  // namespace
