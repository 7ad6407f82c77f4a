#include "common/Arrays.h"

#include <gtest/gtest.h>

TEST(Arrays, AnArrayWithoutDimensionsIsEmptyAlongTimeAndHasAnEmptyShapeText)
{
    EXPECT_EQ(lastExtent(Array()), 0U);
    EXPECT_EQ(shapeText(Array()), "");
}

TEST(Arrays, ShapesAreShownAsExtentsJoinedByX)
{
    EXPECT_EQ(shapeText(Array::from_shape({7})), "7");
    EXPECT_EQ(shapeText(Array::from_shape({6, 2, 1024})), "6x2x1024");
    EXPECT_EQ(lastExtent(Array::from_shape({6, 2, 1024})), 1024U);
    EXPECT_EQ(shapeText(Array::from_shape({2, 0})), "2x0");
    EXPECT_EQ(lastExtent(Array::from_shape({2, 0})), 0U);
}
