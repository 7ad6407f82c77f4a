// SPDX-License-Identifier: MIT
#include "pipeline/BufferAggregator.h"

#include <exception>
#include <numeric>

#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/Signals.h"

namespace
{

using Sizes = std::vector<std::size_t>;

/// An array that counts first, first + 1, ... so that every sample tells where it was.
Array counting(const Sizes& shape, float first = 1.0F)
{
    Array samples = Array::from_shape(shape);
    std::iota(samples.begin(), samples.end(), first);
    return samples;
}

} // namespace

TEST(BufferAggregator, TakingMoreThanIsHeldWarnsAndChangesNothing)
{
    BufferAggregator buffer(2, 8, 1);
    const LogCapture log;
    EXPECT_EQ(buffer.get(0, 0).dimension(), 0U);
    buffer.push(counting({2, 3}));
    EXPECT_EQ(buffer.get(4, 1).dimension(), 0U);
    const std::string start =
        "WARN [BufferAggregator::get] BufferAggregator::get - cannot return requested size: ";
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{start + "0, current length: 0", start + "4, current length: 3"}));
    EXPECT_EQ(buffer.flush(), counting({2, 3}));
}

TEST(BufferAggregator, ABatchHoldsParallelCopies)
{
    BufferAggregator buffer(2, 4, 3);
    const Array flat = counting({2, 3});
    buffer.push(flat);
    const Array copies = buffer.get(0, 1);
    ASSERT_EQ(shapeOf(copies), (Sizes{3, 2, 3}));
    const Array different = counting({3, 2, 3}, 100);
    buffer.push(different); // wraps behind the sample that was kept
    const Array mixed = buffer.flush();
    ASSERT_EQ(shapeOf(mixed), (Sizes{3, 2, 4}));
    for (std::size_t entry = 0; entry < 3; ++entry)
        for (std::size_t channel = 0; channel < 2; ++channel)
        {
            EXPECT_TRUE(samplesNear(row(copies, entry, channel), row(flat, channel), 0.0));
            EXPECT_EQ(mixed(entry, channel, 0), flat(channel, 2));
            EXPECT_TRUE(
                samplesNear(row(mixed, entry, channel).subspan(1), row(different, entry, channel), 0.0));
        }
}

TEST(BufferAggregator, AnEmptyFlushIsFlatBelowTwoEntriesButOtherResultsOnlyForOne)
{
    BufferAggregator none(2, 4, 0);
    EXPECT_EQ(shapeOf(none.flush()), (Sizes{2, 0}));
    none.push(Array::from_shape({0, 2, 3}));
    EXPECT_EQ(shapeOf(none.get(2, 2)), (Sizes{0, 2, 2}));
    EXPECT_EQ(shapeOf(none.flush()), (Sizes{0, 2, 3}));

    BufferAggregator one(2, 4, 1);
    EXPECT_EQ(shapeOf(one.flush()), (Sizes{2, 0}));
    one.push(counting({1, 2, 3})); // either rank is taken
    EXPECT_EQ(one.flush(), counting({2, 3}));

    BufferAggregator two(2, 4, 2);
    EXPECT_EQ(shapeOf(two.flush()), (Sizes{2, 2, 0}));
}

TEST(BufferAggregator, BlocksThatDoNotFitTheRowsAreRefusedUnchanged)
{
    BufferAggregator buffer(2, 8, 1);
    buffer.push(counting({2, 3}));
    for (const Sizes& shape :
         {Sizes{3, 2}, Sizes{4, 2}, Sizes{1, 3, 2}, Sizes{2, 2, 2}, Sizes{1, 1, 2, 2}, Sizes{0, 2}})
        EXPECT_THROW(buffer.push(counting(shape)), std::exception) << ::testing::PrintToString(shape);
    EXPECT_EQ(buffer.flush(), counting({2, 3}));

    BufferAggregator single(1, 8, 1);
    EXPECT_THROW(single.push(counting({2, 2})), std::exception);
    EXPECT_EQ(single.heldSamples(), 0U);
}
