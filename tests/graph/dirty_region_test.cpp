#include "bic/graph/dirty_region.hpp"

#include <gtest/gtest.h>

using namespace bic;

TEST(DirtyRegion, KeepsOnlyRectanglesNotInsideOthers) {
    DirtyRegion region;
    EXPECT_TRUE(region.isEmpty());
    region.add({0, 0, 10, 10});
    region.add({2, 2, 3, 3}); // inside: nothing new to render
    region.add({20, 0, 5, 5});
    EXPECT_EQ(region.rects(), (std::vector<cg::Rect>{{0, 0, 10, 10}, {20, 0, 5, 5}}));
    // One that holds both replaces them; an equal one adds nothing.
    region.add({-1, -1, 30, 12});
    region.add({-1, -1, 30, 12});
    EXPECT_EQ(region.rects(), (std::vector<cg::Rect>{{-1, -1, 30, 12}}));
    // Overlapping without containment: both stay, so neither is rendered twice as a union.
    region.add({25, 5, 10, 10});
    EXPECT_EQ(region.rects().size(), 2u);
    EXPECT_EQ(region.take().size(), 2u);
    EXPECT_TRUE(region.isEmpty()) << "taking empties the region";
}

TEST(DirtyRegion, AStormOfSmallChangesCollapsesIntoItsUnion) {
    DirtyRegion region;
    for (int i = 0; i < int(DirtyRegion::maximumCount); ++i)
        region.add({double(10 * i), 0, 1, 1});
    EXPECT_EQ(region.rects().size(), DirtyRegion::maximumCount);
    region.add({0, 50, 1, 1});
    ASSERT_EQ(region.rects().size(), 1u);
    EXPECT_EQ(region.rects()[0], cg::Rect(0, 0, 311, 51));
    // The whole plane swallows everything after it.
    region.add(cg::Rect::infinite());
    region.add({5, 5, 1, 1});
    ASSERT_EQ(region.rects().size(), 1u);
    EXPECT_TRUE(region.rects()[0].isInfinite());
}
