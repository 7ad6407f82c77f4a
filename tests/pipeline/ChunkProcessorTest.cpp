// SPDX-License-Identifier: MIT
#include "pipeline/ChunkProcessor.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/FakeInference.h"
#include "support/LogCapture.h"
#include "support/ReferenceTransform.h"
#include "support/Signals.h"

namespace
{

using Sizes = std::vector<std::size_t>;

/// One stem that is the input, one that needs both neighbours of a frame, one that also depends on the bin.
const std::vector<StemRecipe> recipes{{0.0, 1.0, 0.0, false}, {0.2, 0.5, 0.3, false}, {-0.4, 0.9, 0.1, true}};

Array silence(std::size_t length)
{
    return xt::zeros<float>({std::size_t{2}, length});
}

bool isSilent(const Array& result)
{
    return std::all_of(result.begin(), result.end(), [](float sample) { return sample == 0.0F; });
}

/// One block through the processor: {stems and mixture, channels, samples}, or an array without dimensions if
/// it completes nothing.
Array process(ChunkProcessor& processor, const Array& block, bool eof, std::span<const bool> silentStems = {})
{
    const std::size_t announced = processor.push(blockOf(block), eof);
    if (announced == 0)
        return {};
    const SampleRows rows = processor.process(eof, silentStems);
    EXPECT_TRUE(rows.length == announced || rows.length < announced);
    Array result = Array::from_shape({rows.rowCount / block.shape(0), block.shape(0), rows.length});
    for (std::size_t i = 0; i < rows.rowCount; ++i)
        std::copy_n(rows.row(i), rows.length, result.data() + i * rows.length);
    return result;
}

/// Joins results along the time axis; those without dimensions count as empty.
Array joined(const std::vector<Array>& results)
{
    const auto& shape = std::find_if(results.begin(), results.end(),
                                     [](const Array& result) { return result.dimension() == 3; })
                            ->shape();
    std::size_t length = 0;
    for (const Array& result : results)
        length += lastExtent(result);
    Array whole = Array::from_shape({shape[0], shape[1], length});
    float* target = whole.data();
    for (std::size_t stem = 0; stem < shape[0]; ++stem)
        for (std::size_t channel = 0; channel < shape[1]; ++channel)
            for (const Array& result : results)
                if (result.dimension() == 3)
                    target = std::copy_n(row(result, stem, channel).data(), lastExtent(result), target);
    return whole;
}

/// Feeds a stream in blocks of these sizes, the last one with eof.
std::vector<Array> feed(ChunkProcessor& processor, const Array& signal, const Sizes& blocks)
{
    std::vector<Array> results;
    std::size_t position = 0;
    for (std::size_t i = 0; i < blocks.size(); ++i)
    {
        results.push_back(process(processor, timeSlice(signal, position, blocks[i]), i + 1 == blocks.size()));
        position += blocks[i];
    }
    EXPECT_EQ(position, signal.shape(1)) << "the blocks make up the signal";
    return results;
}

/// A row with its mirror image before and after it, and zeros where that does not reach.
std::vector<float> mirrored(std::span<const float> samples, std::size_t before, std::size_t after,
                            std::size_t zeros)
{
    std::vector<float> padded(samples.begin() + 1, samples.begin() + static_cast<std::ptrdiff_t>(before) + 1);
    std::reverse(padded.begin(), padded.end());
    padded.insert(padded.end(), samples.begin(), samples.end());
    for (std::size_t i = 0; i < after; ++i)
        padded.push_back(samples[samples.size() - 2 - i]);
    padded.resize(padded.size() + zeros);
    return padded;
}

/// Two channels, frames of 64 samples 16 apart and segments of 20 frames: 240 samples make the first chunk
/// ready and 208 every later one, chunks are at most 304 and 336 samples long, and the buffer holds 480.
class ChunkProcessorTest : public ::testing::Test
{
protected:
    static constexpr std::size_t channels = 2;
    static constexpr std::size_t fftSize = 64;
    static constexpr std::size_t hop = 16;
    static constexpr std::size_t stems = 3;
    static constexpr std::size_t firstReady = 240;
    static constexpr std::size_t laterReady = 208;
    static constexpr std::size_t capacity = 480;

    ChunkProcessor make() const { return {model, channels, fftSize, hop, 0, 20, stems}; }

    Array separated(const Array& signal, const Sizes& blocks) const
    {
        ChunkProcessor processor = make();
        return joined(feed(processor, signal, blocks));
    }

    /// Holds the first samples of every stem against the offline evaluation of its recipe, and the whole
    /// mixture row against the signal.
    static void expectRecipes(const Array& result, const Array& signal, std::size_t compared)
    {
        const std::size_t length = signal.shape(1);
        ASSERT_EQ(shapeOf(result), (Sizes{stems + 1, channels, length}));
        const std::size_t leadOut = fftSize + (hop - length % hop) % hop;
        const std::size_t after = std::min(length - 1, leadOut);
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            // The end is padded first; the mirror image at the front then reflects that as well.
            const auto ended = mirrored(row(signal, channel), 0, after, leadOut - after);
            const auto padded = mirrored(ended, fftSize, 0, 0);
            Sizes starts;
            for (std::size_t start = 0; start + fftSize <= padded.size(); start += hop)
                starts.push_back(start);
            for (std::size_t stem = 0; stem < stems; ++stem)
            {
                const auto reference = separateOffline(padded, starts, fftSize, hop, recipes[stem]);
                // Single against double precision on samples up to 0.5.
                EXPECT_TRUE(samplesNear(row(result, stem, channel).first(compared),
                                        std::span(reference).subspan(fftSize, compared), 2e-6))
                    << "stem " << stem << ", channel " << channel;
            }
            EXPECT_TRUE(samplesNear(row(result, stems, channel), row(signal, channel), 0.0));
        }
    }

    /// Expects the first stem of an identity model to be the signal and the last row to be exactly it.
    static void expectSignal(const Array& result, const Array& signal)
    {
        ASSERT_EQ(lastExtent(result), signal.shape(1));
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            const auto stem = row(result, 0, channel);
            const auto expected = row(signal, channel);
            EXPECT_TRUE(samplesNear(row(result, stems, channel), expected, 0.0));
            // Frames lose their Nyquist component, the alternating sum of their samples over 64. It is at
            // most some 0.5 where a few samples stand alone in silence.
            EXPECT_TRUE(samplesNear(stem, expected, 1.0 / 64));
            if (stem.size() > 2 * fftSize) // elsewhere what little the test signal has there, and rounding
            {
                const std::size_t inner = stem.size() - 2 * fftSize;
                EXPECT_TRUE(
                    samplesNear(stem.subspan(fftSize, inner), expected.subspan(fftSize, inner), 3e-5));
            }
        }
    }

    std::shared_ptr<FakeInference> model = std::make_shared<FakeInference>(identityModel());
};

TEST_F(ChunkProcessorTest, ShortStreamsOfEveryLengthAreLedInAndOutByTheirMirrorImage)
{
    model->model = recipeModel(recipes);
    for (std::size_t length = 1; length <= firstReady; ++length)
    {
        SCOPED_TRACE("length " + std::to_string(length));
        const Array signal = smoothNoise(channels, length, static_cast<std::uint32_t>(length));
        expectRecipes(separated(signal, {length}), signal, length);
    }
}

TEST_F(ChunkProcessorTest, StreamsOfEveryLengthComeBackWholeAndInPlace)
{
    for (std::size_t length = 1; length <= 1000; ++length)
    {
        SCOPED_TRACE("length " + std::to_string(length));
        const Array signal = smoothNoise(channels, length, static_cast<std::uint32_t>(length));
        Sizes blocks{std::min(length, firstReady)};
        for (std::size_t left = length - blocks[0]; left > 0; left -= blocks.back())
            blocks.push_back(std::min(left, laterReady));
        expectSignal(separated(signal, blocks), signal);
        if (length <= capacity) // on the first call already
            expectSignal(separated(signal, {length}), signal);
        if (length >= firstReady && length <= firstReady + capacity - fftSize) // after a chunk
            expectSignal(separated(signal, {firstReady, length - firstReady}), signal);
    }
}

TEST_F(ChunkProcessorTest, JoinsAreSeamlessForAnyBlocksOfWholeHops)
{
    std::mt19937 generator(randomSeed());
    model->model = recipeModel(recipes);
    for (int round = 0; round < 100; ++round)
    {
        Sizes blocks(2 + generator() % 12);
        for (auto& block : blocks)
            block = hop * (1 + generator() % (firstReady / hop));
        blocks.front() = firstReady;
        blocks.back() = 32 + generator() % 100; // of any size, but long enough for a whole mirror image
        const std::size_t length = std::accumulate(blocks.begin(), blocks.end(), std::size_t{0});
        const Array signal = smoothNoise(channels, length, randomSeed());
        expectRecipes(separated(signal, blocks), signal, length);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
    // How far the mirror image reaches depends on where the last call is cut into passes, so it is left out.
    for (const std::size_t last : {257U, 300U, 400U, 416U})
    {
        SCOPED_TRACE("last block of " + std::to_string(last));
        const Array signal = smoothNoise(channels, firstReady + last, 1);
        expectRecipes(separated(signal, {firstReady, last}), signal, signal.shape(1) - 2 * fftSize);
    }
}

// Hosts are told to keep to whole hops; this is what happens if they do not.
TEST(ChunkProcessorBlocks, OfNoWholeHopsLoseSamplesAndShiftTheStems)
{
    ChunkProcessor processor(std::make_shared<FakeInference>(identityModel()), 2, 4096, 1024, 0, 256, 1);
    const Array signal = smoothNoise(2, 519000, 1);
    const auto results = feed(processor, signal, Sizes(519, 1000));
    EXPECT_EQ(
        std::count_if(results.begin(), results.end(), [](const Array& r) { return r.dimension() == 3; }), 3);
    struct Result
    {
        std::size_t call;
        std::size_t begin; // of the chunk in the stream
        std::size_t length;
    };
    // 4096 samples are kept by every chunk.
    for (const auto& [call, begin, length] :
         {Result{258, 0, 252928}, Result{509, 253904, 250880}, Result{519, 504904, 14096}})
    {
        ASSERT_EQ(lastExtent(results[call - 1]), length);
        EXPECT_TRUE(samplesNear(row(results[call - 1], 1, 1), row(signal, 1).subspan(begin, length), 0.0));
    }

    // Frames end where their chunks end: the first 976 samples of the first chunk and the first 120 of the
    // second fall into none, so that stems stand beside a later part of the mixture. The last chunk is padded
    // to whole hops and loses nothing.
    Sizes starts;
    for (const auto& [begin, count] : {std::pair<std::size_t, std::size_t>{976, 252},
                                       {4096 + 253904 + 1024 + 120, 245},
                                       {4096 + 504904 + 1024, 14}})
        for (std::size_t i = 0; i < count; ++i)
            starts.push_back(begin + i * 1024);
    const auto reference =
        separateOffline(mirrored(row(signal, 1), 4096, 4096 + 240, 0), starts, 4096, 1024, {0.0, 1.0, 0.0});
    const Array whole = joined(results);
    EXPECT_TRUE(samplesNear(row(whole, 0, 1), std::span(reference).subspan(4096, lastExtent(whole)), 2e-6));
}

// Without frames only the synthesizers' 48 incomplete samples are left, from whose end 64 and the padding to
// whole hops are to be cut: -16 - padding, which counts from the end once more.
TEST_F(ChunkProcessorTest, AFailureAtTheEndReturnsWhatTheNegativeLengthLeaves)
{
    for (const auto& [before, last, returned] : {std::tuple<std::size_t, std::size_t, std::size_t>{0, 96, 32},
                                                 {0, 100, 20},
                                                 {0, 97, 17},
                                                 {firstReady, 36, 20}}) // with the kept samples 100
    {
        ChunkProcessor processor = make();
        model->model = identityModel();
        process(processor, smoothNoise(channels, before, 1), false);
        model->model = failingModel();
        const Array result = process(processor, smoothNoise(channels, last, 1), true);
        EXPECT_EQ(shapeOf(result), (Sizes{stems + 1, channels, returned})) << last;
        EXPECT_TRUE(isSilent(result));
    }
}

// The stream then begins with what is held: led in by its own mirror image, like any other.
TEST_F(ChunkProcessorTest, AfterAFailureOfTheFirstChunkTheStreamBeginsWithTheNext)
{
    constexpr std::size_t lost = firstReady - fftSize;
    for (const bool throwing : {false, true})
        for (const std::size_t more : {10U, 176U, 177U, 191U, 192U, 193U, 208U, 368U, 415U, 416U})
        {
            SCOPED_TRACE(std::to_string(more) + (throwing ? " after an exception" : " after a failure"));
            model->model = throwing ? throwingModel() : failingModel();
            ChunkProcessor processor = make();
            const Array signal = smoothNoise(channels, firstReady + more, 1);
            const Array first = timeSlice(signal, 0, firstReady);
            if (throwing)
                EXPECT_THROW(process(processor, first, false), std::runtime_error);
            else
                EXPECT_EQ(shapeOf(process(processor, first, false)), (Sizes{stems + 1, channels, 0}));
            EXPECT_EQ(processor.readyThreshold(), firstReady) << "the model has not run yet";

            model->model = identityModel();
            const Array left = timeSlice(signal, lost, fftSize + more);
            const Array next = process(processor, timeSlice(signal, firstReady, more), more % hop != 0);
            const Array rest = process(processor, silence(0), true);
            expectSignal(joined({next, rest}), left);
        }
}

// The lost chunk's frames stay in the spectrogram: a model that sees neighbouring frames finds there what it
// would have found without the failure.
TEST_F(ChunkProcessorTest, AfterAFailureInMidStreamTheStemsAreBackOnceThreeHopsHavePassed)
{
    constexpr std::size_t fadeIn = 3 * hop;
    const Array signal = smoothNoise(channels, firstReady + 2 * laterReady, 1);
    for (const bool throwing : {false, true})
    {
        model->model = recipeModel(recipes);
        ChunkProcessor processor = make();
        ASSERT_EQ(lastExtent(process(processor, timeSlice(signal, 0, firstReady), false)), 176U);

        const Array lost = timeSlice(signal, firstReady, laterReady);
        model->model = throwing ? throwingModel() : failingModel();
        if (throwing)
            EXPECT_THROW(process(processor, lost, false), std::runtime_error);
        else
            EXPECT_EQ(shapeOf(process(processor, lost, false)), (Sizes{stems + 1, channels, 0}));

        model->model = recipeModel(recipes);
        const Array result =
            process(processor, timeSlice(signal, firstReady + laterReady, laterReady), false);
        ASSERT_EQ(lastExtent(result), laterReady);
        constexpr std::size_t begin = 176 + laterReady;
        Sizes starts;
        for (std::size_t start = begin - fftSize; start + fftSize <= signal.shape(1); start += hop)
            starts.push_back(start);
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            const auto expected = row(signal, channel).subspan(begin, laterReady);
            EXPECT_TRUE(samplesNear(row(result, stems, channel), expected, 0.0));
            for (std::size_t stem = 0; stem < stems; ++stem)
            {
                const auto reference =
                    separateOffline(row(signal, channel), starts, fftSize, hop, recipes[stem]);
                EXPECT_TRUE(samplesNear(row(result, stem, channel).subspan(fadeIn),
                                        std::span(reference).subspan(fftSize + fadeIn, laterReady - fadeIn),
                                        2e-6))
                    << "stem " << stem << ", channel " << channel;
            }
        }
    }
}

TEST_F(ChunkProcessorTest, AFirstChunkLouderThanElevenTenthsIsLogged)
{
    const std::string start = "INFO [ChunkProcessor::process] MAX2: ";
    for (const auto& [peak, expected] : std::vector<std::pair<float, std::vector<std::string>>>{
             {1.1F, {}}, {1.1001F, {start + "1.1001"}}, {-1.5F, {start + "1.5"}}})
        for (const bool eof : {false, true})
        {
            ChunkProcessor processor = make();
            Array input = silence(firstReady);
            input(1, 100) = peak;
            const LogCapture log;
            process(processor, input, eof);
            input.fill(2.0F);
            process(processor, input, eof); // only the first chunk counts
            EXPECT_EQ(log.lines(plog::info), expected) << peak;
        }
}

// A processor serves one stream, but a host that goes on after its end does no damage.
TEST_F(ChunkProcessorTest, WhatIsFedAfterTheEndComesBackInItsLength)
{
    for (std::size_t length = 1; length <= capacity; ++length)
    {
        ChunkProcessor processor = make();
        process(processor, smoothNoise(channels, 100, 1), true);
        const Array signal = smoothNoise(channels, length, 2);
        const Array result = process(processor, signal, true);
        ASSERT_EQ(shapeOf(result), (Sizes{stems + 1, channels, length}));
        EXPECT_TRUE(samplesNear(row(result, stems, 1), row(signal, 1), 0.0)) << length;
    }
}

} // namespace
