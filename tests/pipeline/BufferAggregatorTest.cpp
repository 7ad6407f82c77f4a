#include "pipeline/BufferAggregator.h"

#include <deque>
#include <numeric>
#include <random>
#include <stdexcept>

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

TEST(BufferAggregator, AnySequenceOfOperationsBehavesAsAQueue)
{
    std::mt19937 generator(randomSeed());
    const auto below = [&](std::size_t limit)
    { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(generator); };
    for (int round = 0; round < 50; ++round)
    {
        const std::size_t size = 1 + below(40);
        BufferAggregator buffer(2, size, 1);
        std::deque<float> queue; // of the first channel; the second holds the negated samples
        float next = 0.0F;
        const auto expectFront = [&](const Array& block, std::size_t count)
        {
            ASSERT_EQ(shapeOf(block), (Sizes{2, count}));
            for (std::size_t i = 0; i < count; ++i)
            {
                ASSERT_EQ(block(0, i), queue[i]);
                ASSERT_EQ(block(1, i), -queue[i]);
            }
        };
        for (int step = 0; step < 200; ++step)
        {
            const std::size_t choice = below(8);
            const std::size_t requested = below(size + 2);
            if (choice < 5)
            {
                Array block = counting({2, requested}, next);
                for (std::size_t i = 0; i < requested; ++i)
                    block(1, i) = -block(0, i);
                next += static_cast<float>(requested);
                if (queue.size() + requested > size)
                {
                    EXPECT_THROW(buffer.push(block), std::runtime_error);
                    continue;
                }
                buffer.push(block);
                queue.insert(queue.end(), row(block, 0).begin(), row(block, 0).end());
            }
            else if (choice < 7)
            {
                const std::size_t count = requested != 0 ? requested : queue.size();
                const std::size_t keep = count == 0 ? 0 : below(count);
                const Array block = buffer.get(requested, keep);
                if (queue.empty() || queue.size() < count)
                {
                    EXPECT_EQ(block.dimension(), 0U);
                    continue;
                }
                expectFront(block, count);
                queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(count - keep));
            }
            else
            {
                expectFront(buffer.flush(), queue.size());
                queue.clear();
            }
            ASSERT_EQ(buffer.heldSamples(), queue.size());
        }
    }
}
