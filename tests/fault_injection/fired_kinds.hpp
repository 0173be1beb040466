// Which failures of a sweep's table fired at all.
#pragma once

#include <gtest/gtest.h>

#include <set>
#include <span>

#include "fault_injection/entry_points.hpp"
#include "fault_injection/failure.hpp"

namespace test {

// A failure that never fires tests nothing: its call has another name now, or nobody makes it.
class FiredKinds {
public:
    void add(const Failure& failure) { fired_.insert(&failure); }

    // Each failure of the table fired. Not judged when the sweep is not run as a whole: with a
    // filter, without a tool that its tests need, or under a sanitizer, which takes a sample.
    void expect_all(std::span<const Failure> table) const {
        const auto& run = *testing::UnitTest::GetInstance();
        if (kSanitized || run.test_to_run_count() != run.total_test_count() ||
            run.skipped_test_count() > 0) {
            return;
        }
        for (const Failure& failure : table) {
            EXPECT_TRUE(fired_.contains(&failure)) << describe(failure, 1) << " never fired";
        }
    }

private:
    std::set<const Failure*> fired_;
};

}  // namespace test
