// One call reads host data once; a later call reads them again.
#include "support/cached_reading.hpp"

#include <gtest/gtest.h>

namespace {

using kx::CachedReading;
using kx::CachedReadingScope;

TEST(CachedReading, IsFreshForEachReaderOutsideACall) {
    CachedReading<int> snapshot;
    int reads = 0;
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 1);
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2);
    EXPECT_FALSE(CachedReadingScope::open());
}

TEST(CachedReading, IsSharedWithinACallAndTheCallsItMakes) {
    CachedReading<int> snapshot;
    int reads = 0;
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 1);
    {
        const CachedReadingScope outer;
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2) << "what was read before is stale";
        {
            const CachedReadingScope inner;
            EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2);
        }
        EXPECT_TRUE(CachedReadingScope::open());
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2);
    }
    EXPECT_FALSE(CachedReadingScope::open());
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 3);
}

TEST(CachedReading, OfOneCallIsNotThatOfTheNext) {
    CachedReading<int> snapshot;
    int reads = 0;
    for (int call = 1; call <= 3; ++call) {
        const CachedReadingScope scope;
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), call);
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), call);
    }
}

}  // namespace
