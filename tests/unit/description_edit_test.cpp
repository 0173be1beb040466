// Taking one block out of a description.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "vm/description_edit.hpp"

namespace {

using kx::vm::without_block;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";

bool any(std::string_view) { return true; }

// The blocks that a search without success looks at.
std::vector<std::string> blocks_of(std::string_view description) {
    std::vector<std::string> blocks;
    EXPECT_EQ(
        without_block(
            description, "dev",
            [&blocks](std::string_view block) {
                blocks.emplace_back(block);
                return false;
            }),
        std::nullopt);
    return blocks;
}

TEST(DescriptionEdit, CutsTheBlockAloneAndPutsTheDeclarationInFront) {
    EXPECT_THAT(
        without_block("<a>\n  <dev x='1'>\n  </dev>\n</a>\n", "dev", any),
        Optional(kDeclaration + "<a>\n  \n</a>\n"));
    EXPECT_THAT(without_block("<dev></dev>", "dev", any), Optional(kDeclaration));
}

TEST(DescriptionEdit, CutsTheFirstBlockThatPassesTheTest) {
    const auto has_two = [](std::string_view block) { return block.find('2') != block.npos; };
    EXPECT_THAT(
        without_block(" <dev>1</dev> <dev>2</dev> <dev>2</dev> ", "dev", has_two),
        Optional(kDeclaration + " <dev>1</dev>  <dev>2</dev> "));
}

TEST(DescriptionEdit, LooksAtEachBlockOnceInOrder) {
    EXPECT_THAT(
        blocks_of("x<dev>1</dev>y<dev a='b'>2</dev>z"),
        ElementsAre("<dev>1</dev>", "<dev a='b'>2</dev>"));
    EXPECT_THAT(blocks_of(""), IsEmpty());
    EXPECT_THAT(blocks_of("<other></other>"), IsEmpty());
}

TEST(DescriptionEdit, ASelfClosedElementGoesWithTheNextBlock) {
    EXPECT_THAT(blocks_of("<dev/><dev>1</dev>"), ElementsAre("<dev/><dev>1</dev>"));
}

TEST(DescriptionEdit, ANestedBlockEndsAtTheFirstEnd) {
    EXPECT_THAT(blocks_of("<dev><dev>1</dev></dev>"), ElementsAre("<dev><dev>1</dev>"));
}

TEST(DescriptionEdit, ABlockThatIsNotClosedEndsTheSearch) {
    EXPECT_THAT(blocks_of("<dev>1"), IsEmpty());
    EXPECT_THAT(blocks_of("<dev>1</dev><dev>2</dev"), ElementsAre("<dev>1</dev>"));
    EXPECT_THAT(blocks_of("<dev>1</dev><dev"), ElementsAre("<dev>1</dev>"));
}

TEST(DescriptionEdit, AnEndInFrontOfTheFirstStartEndsTheSearch) {
    EXPECT_THAT(blocks_of("</dev><dev>1</dev>"), IsEmpty());
    EXPECT_THAT(
        blocks_of("<dev>1</dev></dev><dev>2</dev>"), ElementsAre("<dev>1</dev>", "<dev>2</dev>"))
        << "one that follows a block does no harm";
}

TEST(DescriptionEdit, EveryCutDescriptionIsHandledInsideItsBounds) {
    const std::string whole = "<a><dev><x/></dev> <dev y='2'></dev></a>";
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<long>(length));
        blocks_of({exact.data(), exact.size()});
    }
}

// What this process has used: other processes do not change it.
double processor_seconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

TEST(DescriptionEdit, TakesTimeInProportionToTheLength) {
    const auto seconds_for = [](int blocks) {
        std::string description;
        for (int k = 0; k < blocks; ++k) {
            description += "<dev>" + std::string(100, '<') + "</dev>";
        }
        const double start = processor_seconds();
        EXPECT_EQ(blocks_of(description).size(), static_cast<std::size_t>(blocks));
        return processor_seconds() - start;
    };
    seconds_for(1000);
    // With ten times the length, the search would take a hundred times as long if each step began
    // at the start.
    EXPECT_LT(seconds_for(100000), 40 * seconds_for(10000) + 0.2);
}

}  // namespace
