// The table of products.
#include "support/products.hpp"

#include <gtest/gtest.h>
#include <kxlinhw/adapter_lists.h>

#include <algorithm>
#include <cstdio>

namespace {

TEST(Products, HaveOneRowForEachId) {
    for (const kx::Product& product : kx::kProducts) {
        EXPECT_EQ(kx::find_product(product.device_id), &product) << product.device_id;
    }
    EXPECT_EQ(kx::find_product(0), nullptr);
    EXPECT_EQ(kx::find_product(0x10021), nullptr);
}

TEST(Products, AreFourteenNamesThirteenModelsAndFortySixPortCounts) {
    const auto count = [](auto has) {
        return std::count_if(std::begin(kx::kProducts), std::end(kx::kProducts), has);
    };
    EXPECT_EQ(count([](const kx::Product& row) { return !row.name.empty(); }), 14);
    EXPECT_EQ(count([](const kx::Product& row) { return !row.long_name.empty(); }), 13);
    EXPECT_EQ(count([](const kx::Product& row) { return row.ports != 0; }), 46);
}

TEST(Products, FitTheirFields) {
    for (const kx::Product& row : kx::kProducts) {
        EXPECT_LE(row.name.size(), sizeof AdapterRecord::product_name);
        EXPECT_EQ(row.ports != 0, row.device_id >= 0x4000);
    }
}

TEST(Products, AreFoundByTheLowerCaseTextOfTheirId) {
    for (const kx::Product& row : kx::kProducts) {
        char text[8];
        std::snprintf(text, sizeof text, "%x", row.device_id);
        EXPECT_EQ(getPortsQ4(text), row.ports) << text;
    }
    EXPECT_EQ(getPortsQ4("400a"), 2);
    EXPECT_EQ(getPortsQ4("400a9"), 2) << "four characters count";
    for (const char* text : {"400A", "400", "", "0x400a", " 400a", "5017"}) {
        EXPECT_EQ(getPortsQ4(text), 0) << text;
    }
}

}  // namespace
