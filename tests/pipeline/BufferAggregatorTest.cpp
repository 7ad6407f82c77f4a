#include "pipeline/BufferAggregator.h"

#include <algorithm>
#include <deque>
#include <numeric>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/Signals.h"

namespace
{

/// A {1, n} block.
Array mono(const std::vector<float>& samples)
{
    Array block = Array::from_shape({1, samples.size()});
    std::copy(samples.begin(), samples.end(), block.begin());
    return block;
}

std::vector<float> values(const Array& array)
{
    return {array.begin(), array.end()};
}

std::string overflowText(BufferAggregator& buffer, const Array& block)
{
    try
    {
        buffer.push(block);
    }
    catch (const std::runtime_error& error)
    {
        return error.what();
    }
    return "accepted";
}

} // namespace

TEST(BufferAggregator, ABlockOfExactlyTheFreeSpaceFitsAndOneMoreIsRefusedUnchanged)
{
    BufferAggregator buffer(1, 5, 1);
    buffer.push(mono({1, 2}));
    EXPECT_EQ(overflowText(buffer, mono({3, 4, 5, 6})), "Buffer overflow: cannot accept chunk of size 4");
    EXPECT_EQ(buffer.heldSamples(), 2U);
    buffer.push(mono({3, 4, 5}));
    EXPECT_EQ(buffer.heldSamples(), 5U);
    EXPECT_EQ(overflowText(buffer, mono({6})), "Buffer overflow: cannot accept chunk of size 1");
    buffer.push(mono({}));
    EXPECT_EQ(values(buffer.flush()), (std::vector<float>{1, 2, 3, 4, 5}));
}

TEST(BufferAggregator, BlocksWrapAroundTheEndOfTheStorage)
{
    for (std::size_t offset = 0; offset < 6; ++offset)
        for (std::size_t count = 0; count <= 6; ++count)
        {
            BufferAggregator buffer(2, 6, 1);
            buffer.push(countingSamples(2, 6));
            if (offset > 0)
                buffer.get(offset, 0);
            buffer.get(0, 0); // empty, but beginning anywhere
            const Array block = countingSamples(2, count);
            buffer.push(block);
            EXPECT_EQ(buffer.heldSamples(), count);
            EXPECT_EQ(buffer.flush(), block) << count << " samples, storage begins at " << offset;
        }
}

TEST(BufferAggregator, TakingKeepsTheNewestSamplesForTheNextBlock)
{
    BufferAggregator buffer(1, 8, 1);
    buffer.push(mono({1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(values(buffer.get(5, 2)), (std::vector<float>{1, 2, 3, 4, 5}));
    EXPECT_EQ(buffer.heldSamples(), 4U);
    buffer.push(mono({8, 9, 10}));
    EXPECT_EQ(values(buffer.get(0, 3)), (std::vector<float>{4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(buffer.heldSamples(), 3U);
    EXPECT_EQ(values(buffer.get(3, 0)), (std::vector<float>{8, 9, 10}));
    EXPECT_EQ(buffer.heldSamples(), 0U);
}

TEST(BufferAggregator, TakingMoreThanIsHeldWarnsAndChangesNothing)
{
    BufferAggregator buffer(1, 8, 1);
    const LogCapture log;
    EXPECT_EQ(buffer.get(0, 0).dimension(), 0U);
    buffer.push(mono({1, 2, 3}));
    EXPECT_EQ(buffer.get(4, 1).dimension(), 0U);
    const std::string start =
        "WARN [BufferAggregator::get] BufferAggregator::get - cannot return requested size: ";
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{start + "0, current length: 0", start + "4, current length: 3"}));
    EXPECT_EQ(values(buffer.flush()), (std::vector<float>{1, 2, 3}));
}

TEST(BufferAggregator, AfterFlushingEverythingIsGoneAndTheStorageBeginsAnew)
{
    BufferAggregator buffer(2, 5, 1);
    EXPECT_EQ(shapeOf(buffer.flush()), (std::vector<std::size_t>{2, 0}));
    buffer.push(countingSamples(2, 4));
    buffer.get(3, 0);
    buffer.push(timeSlice(countingSamples(2, 10), 4, 4)); // wraps
    const Array everything = buffer.flush();
    ASSERT_EQ(shapeOf(everything), (std::vector<std::size_t>{2, 5}));
    EXPECT_EQ(values(everything), (std::vector<float>{4, 5, 6, 7, 8, 8, 15, 16, 17, 18}));
    EXPECT_EQ(buffer.heldSamples(), 0U);
    EXPECT_EQ(shapeOf(buffer.flush()), (std::vector<std::size_t>{2, 0}));
    buffer.push(countingSamples(2, 5));
    EXPECT_EQ(buffer.flush(), countingSamples(2, 5));
}

TEST(BufferAggregator, ABatchHoldsParallelCopies)
{
    BufferAggregator buffer(2, 4, 3);
    EXPECT_EQ(shapeOf(buffer.flush()), (std::vector<std::size_t>{3, 2, 0}));
    const Array flat = countingSamples(2, 3);
    buffer.push(flat);
    const Array copies = buffer.get(0, 1);
    ASSERT_EQ(shapeOf(copies), (std::vector<std::size_t>{3, 2, 3}));
    for (std::size_t entry = 0; entry < 3; ++entry)
        for (std::size_t channel = 0; channel < 2; ++channel)
            EXPECT_TRUE(samplesNear(row(copies, entry, channel), row(flat, channel), 0.0));

    Array different = Array::from_shape({3, 2, 3});
    std::iota(different.begin(), different.end(), 100.0F);
    buffer.push(different); // wraps behind the sample that was kept
    const Array mixed = buffer.flush();
    ASSERT_EQ(shapeOf(mixed), (std::vector<std::size_t>{3, 2, 4}));
    for (std::size_t entry = 0; entry < 3; ++entry)
        for (std::size_t channel = 0; channel < 2; ++channel)
        {
            EXPECT_EQ(mixed(entry, channel, 0), flat(channel, 2));
            EXPECT_TRUE(
                samplesNear(row(mixed, entry, channel).subspan(1), row(different, entry, channel), 0.0));
        }
}

TEST(BufferAggregator, AnEmptyFlushIsFlatBelowTwoEntriesButOtherResultsOnlyForOne)
{
    BufferAggregator one(2, 4, 1);
    EXPECT_EQ(one.flush().dimension(), 2U);
    one.push(countingSamples(2, 1));
    EXPECT_EQ(one.flush().dimension(), 2U);

    BufferAggregator none(2, 4, 0);
    EXPECT_EQ(shapeOf(none.flush()), (std::vector<std::size_t>{2, 0}));
    none.push(Array::from_shape({0, 2, 3}));
    EXPECT_EQ(shapeOf(none.get(2, 2)), (std::vector<std::size_t>{0, 2, 2}));
    EXPECT_EQ(shapeOf(none.flush()), (std::vector<std::size_t>{0, 2, 3}));
}

TEST(BufferAggregator, AOneEntryBatchTakesBlocksOfEitherRank)
{
    BufferAggregator buffer(2, 8, 1);
    Array solid = countingSamples(2, 3);
    solid.reshape({1, 2, 3});
    buffer.push(solid);
    buffer.push(countingSamples(2, 1));
    EXPECT_EQ(values(buffer.flush()), (std::vector<float>{1, 2, 3, 1, 4, 5, 6, 2}));
}

TEST(BufferAggregator, BlocksThatDoNotFitTheRowsAreRefusedUnchanged)
{
    BufferAggregator buffer(2, 8, 1);
    buffer.push(countingSamples(2, 3));
    const std::vector<std::vector<std::size_t>> misfits{{3, 2},    {4, 2},       {1, 3, 2},
                                                        {2, 2, 2}, {1, 1, 2, 2}, {0, 2}};
    for (const auto& shape : misfits)
    {
        const Array block = xt::zeros<float>(shape);
        EXPECT_THROW(buffer.push(block), std::exception) << shapeText(block);
        EXPECT_EQ(buffer.heldSamples(), 3U) << shapeText(block);
    }
    EXPECT_EQ(buffer.flush(), countingSamples(2, 3));

    BufferAggregator single(1, 8, 1);
    EXPECT_THROW(single.push(countingSamples(2, 2)), std::exception);
    EXPECT_EQ(single.heldSamples(), 0U);
}

TEST(BufferAggregator, ItsGeometryIsLogged)
{
    const LogCapture log;
    const BufferAggregator buffer(2, 100, 3);
    const std::string start = " [BufferAggregator::BufferAggregator] ";
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"DEBUG" + start +
                                            "BufferAggregator constructor - channels: 2, size: 100, batch: 3",
                                        "VERB" + start + "Buffer shape: [3, 2, 100]",
                                        "VERB" + start + "Buffer total size: 600 elements"}));
}

TEST(BufferAggregator, AnySequenceOfOperationsBehavesAsAQueue)
{
    const std::uint32_t seed = randomSeed();
    SCOPED_TRACE(seedText(seed));
    std::mt19937 generator(seed);
    const auto below = [&](std::size_t limit)
    { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(generator); };
    for (int round = 0; round < 50; ++round)
    {
        const std::size_t size = 1 + below(40);
        BufferAggregator buffer(2, size, 1);
        std::deque<float> queue; // of the first channel; the second holds the negated samples
        float next = 0.0F;
        const auto expectFront = [&](const Array& block)
        {
            ASSERT_EQ(block.dimension(), 2U);
            for (std::size_t i = 0; i < block.shape(1); ++i)
            {
                ASSERT_EQ(block(0, i), queue[i]);
                ASSERT_EQ(block(1, i), -queue[i]);
            }
        };
        for (int step = 0; step < 200; ++step)
        {
            const std::size_t choice = below(8);
            if (choice < 5)
            {
                Array block = Array::from_shape({2, below(size + 2)});
                for (std::size_t i = 0; i < block.shape(1); ++i)
                {
                    block(0, i) = ++next;
                    block(1, i) = -next;
                }
                if (queue.size() + block.shape(1) > size)
                {
                    EXPECT_THROW(buffer.push(block), std::runtime_error);
                    continue;
                }
                buffer.push(block);
                queue.insert(queue.end(), row(block, 0).begin(), row(block, 0).end());
            }
            else if (choice < 7)
            {
                const std::size_t requested = below(size + 2);
                const std::size_t count = requested != 0 ? requested : queue.size();
                const std::size_t keep = count == 0 ? 0 : below(count);
                const Array block = buffer.get(requested, keep);
                if (queue.empty() || queue.size() < count)
                {
                    EXPECT_EQ(block.dimension(), 0U);
                    continue;
                }
                ASSERT_EQ(lastExtent(block), count);
                expectFront(block);
                queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(count - keep));
            }
            else
            {
                const Array block = buffer.flush();
                ASSERT_EQ(lastExtent(block), queue.size());
                expectFront(block);
                queue.clear();
            }
            ASSERT_EQ(buffer.heldSamples(), queue.size());
        }
    }
}
