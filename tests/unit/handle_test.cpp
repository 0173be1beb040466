// Owners of resources of the C library.
#include "support/handle.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace {

using kx::Descriptor;

int open_somewhere() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }
bool is_open(int number) { return fcntl(number, F_GETFD) != -1; }

TEST(Descriptor, IsClosedWithItsOwner) {
    const int number = open_somewhere();
    {
        const Descriptor descriptor(number);
        EXPECT_TRUE(descriptor);
        EXPECT_EQ(descriptor.get(), number);
        EXPECT_TRUE(is_open(number));
    }
    EXPECT_FALSE(is_open(number));
}

TEST(Descriptor, OfAFailedCallIsNone) {
    const Descriptor failed(-1);
    EXPECT_FALSE(failed);
    EXPECT_FALSE(Descriptor());
    EXPECT_EQ(Descriptor().get(), -1);
}

TEST(Descriptor, KeepsTheReasonOfTheCallBefore) {
    errno = ENODEV;
    {
        const Descriptor descriptor(open_somewhere());
        close(descriptor.get());  // closing it again fails
    }
    EXPECT_EQ(errno, ENODEV);
}

TEST(Descriptor, MayBeStandardInputsNumber) {
    const int input = dup(STDIN_FILENO);
    dup2(open_somewhere(), STDIN_FILENO);
    {
        const Descriptor descriptor(STDIN_FILENO);
        EXPECT_TRUE(descriptor);
    }
    EXPECT_FALSE(is_open(STDIN_FILENO));
    dup2(input, STDIN_FILENO);
    close(input);
}

TEST(Descriptor, HasOneOwnerAtATime) {
    const int number = open_somewhere();
    const int other = open_somewhere();
    {
        Descriptor first(number);
        Descriptor second(std::move(first));
        EXPECT_EQ(first.get(), -1);  // NOLINT(bugprone-use-after-move): nothing is left in it
        EXPECT_EQ(second.get(), number);
        {
            Descriptor third(other);
            third = std::move(second);
            EXPECT_EQ(third.get(), number);
            EXPECT_TRUE(is_open(number));
        }
        EXPECT_FALSE(is_open(number));
        EXPECT_TRUE(is_open(other)) << "what it owned went to the other one";
    }
    EXPECT_FALSE(is_open(other));
}

TEST(Record, IsZeroed) {
    struct Bytes {
        char bytes[4096];
    };
    const auto record = kx::allocate_record<Bytes>();
    ASSERT_NE(record, nullptr);
    for (const char byte : record->bytes) {
        ASSERT_EQ(byte, 0);
    }
}

}  // namespace
