#include <numeric>
#include <random>

#include "pipeline/ChunkProcessorFixture.h"

namespace
{

/// One stem that is the input, one that needs both neighbours of a frame, one that also depends on the bin.
const std::vector<StemRecipe> recipes{{0.0, 1.0, 0.0, false}, {0.2, 0.5, 0.3, false}, {-0.4, 0.9, 0.1, true}};

class ChunkProcessorStream : public SmallPipeline
{
protected:
    /// Holds every stem against the offline evaluation of its recipe on the padded signal.
    static void expectRecipes(const Array& result, const Array& signal, std::size_t before, std::size_t after,
                              std::size_t zeros, std::size_t compared)
    {
        ASSERT_EQ(lastExtent(result), signal.shape(1));
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            const auto padded = mirrored(row(signal, channel), before, after, zeros);
            for (std::size_t stem = 0; stem < stems; ++stem)
            {
                const auto reference =
                    separateOffline(padded, regularFrames(padded.size()), fftSize, hop, recipes[stem]);
                // Single against double precision on samples up to 0.5.
                EXPECT_TRUE(samplesNear(row(result, stem, channel).first(compared),
                                        std::span(reference).subspan(before, compared), 2e-6))
                    << "stem " << stem << ", channel " << channel;
            }
            EXPECT_TRUE(samplesNear(row(result, stems, channel), row(signal, channel), 0.0));
        }
    }
};

class ChunkProcessorFullStream : public FullPipeline
{
};

} // namespace

TEST_F(ChunkProcessorStream, ShortStreamsOfEveryLengthAreLedInAndOutByTheirMirrorImage)
{
    model->model = recipeModel(recipes);
    for (std::size_t length = 1; length <= firstReady; ++length)
    {
        SCOPED_TRACE("length " + std::to_string(length));
        const Array signal = smoothNoise(channels, length, static_cast<std::uint32_t>(length));
        ChunkProcessor processor = make();
        const Array result = joined(feed(processor, signal, {length}));

        // The end is padded first; the mirror image at the front then reflects that as well.
        const std::size_t toWholeHop = length % hop == 0 ? 0 : hop - length % hop;
        const std::size_t after = std::min(length - 1, fftSize + toWholeHop);
        const std::size_t zeros = fftSize + toWholeHop - after;
        ASSERT_EQ(lastExtent(result), length);
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            const auto padded = mirrored(mirrored(row(signal, channel), 0, after, zeros), fftSize, 0, 0);
            for (std::size_t stem = 0; stem < stems; ++stem)
            {
                const auto reference =
                    separateOffline(padded, regularFrames(padded.size()), fftSize, hop, recipes[stem]);
                // Single against double precision on samples up to 0.5.
                EXPECT_TRUE(samplesNear(row(result, stem, channel),
                                        std::span(reference).subspan(fftSize, length), 2e-6))
                    << "stem " << stem << ", channel " << channel;
            }
        }
    }
}

TEST_F(ChunkProcessorStream, StreamsOfEveryLengthComeBackWholeAndInPlace)
{
    for (std::size_t length = 1; length <= 1000; ++length)
    {
        SCOPED_TRACE("length " + std::to_string(length));
        const Array signal = smoothNoise(channels, length, static_cast<std::uint32_t>(length));
        ChunkProcessor processor = make();
        expectSignal(joined(feedReadyBlocks(processor, signal)), signal);
    }
}

TEST_F(ChunkProcessorStream, WhateverIsHeldAtTheEndComesBackWhole)
{
    for (std::size_t last = 0; last <= capacity; ++last)
    {
        SCOPED_TRACE("last block of " + std::to_string(last));
        if (last > 0) // on the first call already
        {
            const Array signal = smoothNoise(channels, last, 1);
            ChunkProcessor processor = make();
            expectSignal(joined(feed(processor, signal, {last})), signal);
        }
        if (last <= capacity - fftSize) // after a chunk, of which 64 samples are kept
        {
            const Array signal = smoothNoise(channels, firstReady + last, 1);
            ChunkProcessor processor = make();
            expectSignal(joined(feed(processor, signal, {firstReady, last})), signal);
        }
    }
}

TEST_F(ChunkProcessorStream, JoinsAreSeamlessForAnyBlocksOfWholeHops)
{
    const std::uint32_t seed = randomSeed();
    SCOPED_TRACE(seedText(seed));
    std::mt19937 generator(seed);
    model->model = recipeModel(recipes);
    for (int round = 0; round < 100; ++round)
    {
        std::vector<std::size_t> blocks(2 + generator() % 12);
        for (auto& block : blocks)
            block = hop * (1 + generator() % (firstReady / hop));
        blocks.front() = firstReady;
        blocks.back() = 32 + generator() % 100; // of any size, but long enough for a whole mirror image
        const std::size_t length = std::accumulate(blocks.begin(), blocks.end(), std::size_t{0});
        const Array signal = smoothNoise(channels, length, seed);
        ChunkProcessor processor = make();
        const Array result = joined(feed(processor, signal, blocks));
        const std::size_t toWholeHop = length % hop == 0 ? 0 : hop - length % hop;
        expectRecipes(result, signal, fftSize, fftSize + toWholeHop, 0, length);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

TEST_F(ChunkProcessorStream, JoinsWithinTheLastCallAreSeamlessToo)
{
    model->model = recipeModel(recipes);
    for (const std::size_t last : {257U, 300U, 400U, 416U})
    {
        SCOPED_TRACE("last block of " + std::to_string(last));
        const Array signal = smoothNoise(channels, firstReady + last, 1);
        ChunkProcessor processor = make();
        const Array result = joined(feed(processor, signal, {firstReady, last}));
        // How far the mirror image at the end reaches depends on where the passes were cut, so its reach is
        // left out.
        const std::size_t toWholeHop = signal.shape(1) % hop == 0 ? 0 : hop - signal.shape(1) % hop;
        expectRecipes(result, signal, fftSize, fftSize + toWholeHop, 0, signal.shape(1) - 2 * fftSize);
    }
}

TEST_F(ChunkProcessorFullStream, JoinsAreSeamlessInFullSize)
{
    const StemRecipe recipe{0.2, 0.5, 0.3, true};
    model->model = recipeModel({recipe});
    const Array signal = smoothNoise(channels, 600000, 1);
    const Array result = joinResults(feed(processor, signal, {257024, 254976, 88000}), 2, channels);
    EXPECT_EQ(model->runs, 3U);
    ASSERT_EQ(lastExtent(result), 600000U);

    // 600000 is 64 short of whole hops.
    const auto padded = mirrored(row(signal, 1), fftSize, fftSize + 64, 0);
    std::vector<std::size_t> starts;
    for (std::size_t start = 0; start + fftSize <= padded.size(); start += hop)
        starts.push_back(start);
    const auto reference = separateOffline(padded, starts, fftSize, hop, recipe);
    // Single against double precision on samples up to 0.5.
    EXPECT_TRUE(samplesNear(row(result, 0, 1), std::span(reference).subspan(fftSize, 600000), 2e-6));
    EXPECT_TRUE(samplesNear(row(result, 1, 1), row(signal, 1), 0.0));
}

// Hosts are told to keep to whole hops; this is what happens if they do not.
TEST_F(ChunkProcessorFullStream, BlocksThatAreNoWholeHopsLoseSamplesAndShiftTheStems)
{
    const Array signal = smoothNoise(channels, 519000, 1);
    const auto results = feed(processor, signal, std::vector<std::size_t>(519, 1000));
    for (std::size_t call = 1; call <= results.size(); ++call)
    {
        const bool expected = call == 258 || call == 509 || call == 519;
        EXPECT_EQ(results[call - 1].dimension(), expected ? 3U : 0U) << "call " << call;
    }
    const Array& first = results[257];
    const Array& second = results[508];
    const Array& last = results[518];

    // The first chunk holds 258000 samples, 976 more than whole hops. They fall into no frame, so the stems
    // begin with sample 976; 4096 samples are kept, so the second chunk begins with sample 253904.
    const auto input = row(signal, 1);
    ASSERT_EQ(lastExtent(first), 252928U);
    EXPECT_TRUE(samplesNear(row(first, 1, 1), input.first(252928), 0.0));
    EXPECT_TRUE(samplesNear(row(first, 0, 1).subspan(4096), input.subspan(976 + 4096, 252928 - 4096), 2e-6));

    // The second holds 255096 samples, 120 more than whole hops.
    ASSERT_EQ(lastExtent(second), 250880U);
    EXPECT_TRUE(samplesNear(row(second, 1, 1), input.subspan(253904, 250880), 0.0));
    EXPECT_TRUE(samplesNear(row(second, 0, 1).subspan(4096),
                            input.subspan(253904 + 120 + 4096, 250880 - 4096), 2e-6));

    // The last is padded to whole hops and loses nothing.
    ASSERT_EQ(lastExtent(last), 14096U);
    EXPECT_TRUE(samplesNear(row(last, 1, 1), input.subspan(504904), 0.0));

    // The joins, where frames of both alignments overlap: frames end where their chunks end.
    std::vector<std::size_t> starts;
    const auto addFrames = [&](std::size_t begin, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            starts.push_back(begin + i * hop);
    };
    addFrames(976, 252);
    addFrames(fftSize + 253904 + hop + 120, 245);
    addFrames(fftSize + 504904 + hop, 14);
    const auto reference =
        separateOffline(mirrored(input, fftSize, fftSize + 240, 0), starts, fftSize, hop, {0.0, 1.0, 0.0});
    const Array joined = joinResults(results, 2, channels);
    EXPECT_TRUE(
        samplesNear(row(joined, 0, 1), std::span(reference).subspan(fftSize, lastExtent(joined)), 2e-6));
}
