// One call reads host data once; a later call reads them again.
#include "support/call_snapshot.hpp"

#include <gtest/gtest.h>

namespace {

using kx::Snapshot;
using kx::SnapshotScope;

TEST(Snapshot, IsFreshForEachReaderOutsideACall) {
    Snapshot<int> snapshot;
    int reads = 0;
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 1);
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2);
    EXPECT_FALSE(SnapshotScope::open());
}

TEST(Snapshot, IsSharedWithinACallAndTheCallsItMakes) {
    Snapshot<int> snapshot;
    int reads = 0;
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 1);
    {
        const SnapshotScope outer;
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2) << "what was read before is stale";
        {
            const SnapshotScope inner;
            EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2);
        }
        EXPECT_TRUE(SnapshotScope::open());
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), 2);
    }
    EXPECT_FALSE(SnapshotScope::open());
    EXPECT_EQ(snapshot.get([&] { return ++reads; }), 3);
}

TEST(Snapshot, OfOneCallIsNotThatOfTheNext) {
    Snapshot<int> snapshot;
    int reads = 0;
    for (int call = 1; call <= 3; ++call) {
        const SnapshotScope scope;
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), call);
        EXPECT_EQ(snapshot.get([&] { return ++reads; }), call);
    }
}

}  // namespace
