// SPDX-License-Identifier: MIT
#include "pipeline/SteppedStream.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/FakeInference.h"
#include "support/Signals.h"

namespace
{

constexpr std::size_t hop = 1024;

/// The rows of a stream's results, joined.
using Rows = std::vector<std::vector<float>>;

void append(Rows& rows, const SampleRows& result)
{
    for (std::size_t i = 0; i < result.rowCount; ++i)
        rows[i].insert(rows[i].end(), result.row(i), result.row(i) + result.length);
}

struct Outcome
{
    Rows rows = Rows(14);     ///< left and right of six stems and of the mixture
    std::size_t furthest = 0; ///< the most samples that were fed and not returned
    std::size_t failures = 0; ///< calls that threw
};

/// Feeds a signal in blocks of one size, and ends it.
Outcome run(SteppedStream& stream, const Array& signal, std::size_t blockLength)
{
    Outcome outcome;
    const std::size_t length = signal.shape(1);
    for (std::size_t position = 0; position < length;)
    {
        const std::size_t blockEnd = std::min(length, position + blockLength);
        while (position < blockEnd)
        {
            const std::size_t count = std::min(blockEnd - position, stream.samplesUntilResult());
            const Array block = timeSlice(signal, position, count);
            position += count;
            try
            {
                append(outcome.rows, stream.feed(blockOf(block)));
            }
            catch (const std::runtime_error&)
            {
                ++outcome.failures;
            }
            outcome.furthest = std::max(outcome.furthest, position - outcome.rows[0].size());
        }
    }
    append(outcome.rows, stream.finish());
    return outcome;
}

/// The input in the first stem, silence in the others; quicker than a recipe.
FakeInference::Model firstStemOnly()
{
    return [](auto input, const auto& outputs, auto&&)
    {
        std::copy(input.begin(), input.end(), outputs[0]);
        for (std::size_t stem = 1; stem < outputs.size(); ++stem)
            std::fill_n(outputs[stem], input.size(), 0.0F);
        return true;
    };
}

/// A stem of the same spectra as the input, times a gain that depends on the run.
FakeInference::Model gainPerRun(std::vector<float> gains)
{
    return [gains, next = std::size_t{0}](auto input, const auto& outputs, auto&&) mutable
    {
        const float gain = gains[next++ % gains.size()];
        for (float* output : outputs)
            std::transform(input.begin(), input.end(), output, [gain](float value) { return gain * value; });
        return true;
    };
}

/// The Nyquist bin is dropped, and the kink where the mirror image begins has a little there: most where the
/// whole signal is one sample, of at most 0.5, which loses a 4096th. Noise that is out of place by one sample
/// is off by hundreds of times as much.
constexpr double nyquist = 0.5 / 4096;

const std::vector<RunGeometry> geometries{{1, 0, 0},     {2, 0, 0},    {1, 3, 1},     {8, 2, 0},
                                          {16, 8, 2},    {64, 32, 16}, {128, 64, 32}, {249, 1, 0},
                                          {127, 0, 126}, {3, 250, 0}};

std::string nameOf(const RunGeometry& geometry)
{
    return "step " + std::to_string(geometry.step) + ", lookahead " + std::to_string(geometry.lookahead) +
           ", blend " + std::to_string(geometry.blend);
}

} // namespace

// A model that changes nothing gives the input back, in place and as long, at every length and within the
// latency.
TEST(SteppedStream, KeepsEverySampleInItsPlace)
{
    const auto seed = randomSeed();
    for (const RunGeometry& geometry : geometries)
    {
        SteppedStream stream(std::make_shared<FakeInference>(firstStemOnly()), geometry);
        const std::size_t runs = geometry.step < 16 ? 6 : 2;
        for (const std::size_t length : {std::size_t{1}, std::size_t{4096}, stream.latency(),
                                         stream.latency() + runs * geometry.step * hop + 333})
        {
            SCOPED_TRACE(nameOf(geometry) + ", " + std::to_string(length) + " samples, seed " +
                         std::to_string(seed));
            stream.reset();
            const Array signal = smoothNoise(2, length, seed);
            const Outcome outcome = run(stream, signal, 7001);
            EXPECT_LE(outcome.furthest, stream.latency());
            for (std::size_t channel = 0; channel < 2; ++channel)
            {
                EXPECT_TRUE(samplesNear(outcome.rows[channel], row(signal, channel), nyquist))
                    << "first stem";
                EXPECT_TRUE(samplesNear(outcome.rows[12 + channel], row(signal, channel), 0)) << "mixture";
            }
        }
    }
}

// The bound is reached, so a host cannot count on less.
TEST(SteppedStream, HoldsBackAsMuchAsItsLatencySays)
{
    for (const RunGeometry& geometry : {RunGeometry{8, 2, 0}, RunGeometry{20, 9, 5}})
    {
        SteppedStream stream(std::make_shared<FakeInference>(firstStemOnly()), geometry);
        const Outcome outcome = run(stream, smoothNoise(2, 60 * hop, 1), 1);
        EXPECT_EQ(outcome.furthest, stream.latency()) << nameOf(geometry);
        EXPECT_EQ(stream.latency(), (geometry.step + geometry.held() + 3) * hop - 1) << nameOf(geometry);
    }
}

TEST(SteppedStream, GivesTheSameBitsHoweverItIsCutAndAfterAReset)
{
    const Array signal = smoothNoise(2, 150'001, 3);
    const std::vector<StemRecipe> recipes{{0.0, 1.0, 0.0}, {0.2, 0.5, 0.3, true}, {-0.4, 0.9, 0.1, true}};
    SteppedStream stream(std::make_shared<FakeInference>(recipeModel(recipes)), {12, 5, 3});
    const Outcome whole = run(stream, signal, signal.shape(1));
    for (const std::size_t blockLength : {std::size_t{64}, std::size_t{441}, std::size_t{100'000}})
    {
        stream.reset();
        EXPECT_EQ(run(stream, signal, blockLength).rows, whole.rows) << "blocks of " << blockLength;
    }
    // A stream that is left in the middle leaves nothing behind.
    stream.reset();
    for (int i = 0; i < 40; ++i)
        stream.feed(blockOf(smoothNoise(2, 1000, 9)));
    stream.reset();
    EXPECT_EQ(run(stream, signal, 5000).rows, whole.rows);
}

// Each run contradicts the one before. Without a blend the level jumps at once; with one it climbs in equal
// steps.
TEST(SteppedStream, FadesFromRunToRun)
{
    const std::size_t length = 100 * hop;
    Array tone = Array::from_shape({std::size_t{2}, length});
    for (std::size_t i = 0; i < length; ++i)
        tone(0, i) = tone(1, i) =
            static_cast<float>(std::sin(2 * 3.14159265358979 * static_cast<double>(i) / 32));
    for (const std::size_t blend : {0U, 3U, 9U})
    {
        SteppedStream stream(std::make_shared<FakeInference>(gainPerRun({0.0F, 1.0F})), {20, 4, blend});
        const Outcome outcome = run(stream, tone, length);
        std::vector<double> levels; // of every hop
        for (std::size_t first = 0; first + hop <= length; first += hop)
        {
            double sum = 0;
            for (std::size_t i = first; i < first + hop; ++i)
                sum += static_cast<double>(outcome.rows[0][i]) * static_cast<double>(outcome.rows[0][i]);
            levels.push_back(std::sqrt(2 * sum / static_cast<double>(hop)));
        }
        double steepest = 0;
        for (std::size_t i = 1; i < levels.size(); ++i)
            steepest = std::max(steepest, std::abs(levels[i] - levels[i - 1]));
        EXPECT_NEAR(*std::max_element(levels.begin(), levels.end()), 1.0, 1e-3) << "blend " << blend;
        if (blend == 0)
            EXPECT_GT(steepest, 0.5) << "the four frames over a sample soften it a little";
        else
            EXPECT_NEAR(steepest, 1.0 / static_cast<double>(blend + 1), 0.01) << "blend " << blend;
    }
}

// The lost run's frames are missing; nothing else moves, and nothing of before it is faded into what follows.
TEST(SteppedStream, StaysInPlaceWhenARunFails)
{
    const Array signal = smoothNoise(2, 120 * hop, 4);
    std::size_t runs = 0;
    const auto model = [&](auto input, const auto& outputs, auto&&)
    {
        if (runs++ == 3)
            throw std::runtime_error("the model broke");
        for (float* output : outputs)
            std::copy(input.begin(), input.end(), output);
        return true;
    };
    const RunGeometry geometry{10, 4, 3};
    SteppedStream stream(std::make_shared<FakeInference>(model), geometry);
    const Outcome outcome = run(stream, signal, 999);
    EXPECT_EQ(outcome.failures, 1U);
    const std::size_t lost = geometry.step * hop;
    ASSERT_EQ(outcome.rows[0].size(), signal.shape(1) - lost);
    const auto rest = row(signal, 0).subspan(70 * hop);
    const std::span<const float> end = std::span(outcome.rows[0]).last(rest.size());
    EXPECT_TRUE(samplesNear(end, rest, nyquist));
}

TEST(RunGeometry, SaysWhatIsImpossible)
{
    constexpr std::size_t frames = 256;
    for (const RunGeometry& geometry : geometries)
        EXPECT_EQ(geometry.fault(frames), "") << nameOf(geometry);
    EXPECT_NE(RunGeometry({0, 1, 0}).fault(frames), "");
    EXPECT_NE(RunGeometry({8, 1, 9}).fault(frames), "");
    EXPECT_NE(RunGeometry({200, 54, 0}).fault(frames), "");
    EXPECT_NE(RunGeometry({SIZE_MAX, 2, 0}).fault(frames), "");
    EXPECT_NE(RunGeometry({1, SIZE_MAX, 1}).fault(frames), "");
    EXPECT_THROW(SteppedStream(std::make_shared<FakeInference>(firstStemOnly()), {0, 1, 0}),
                 std::invalid_argument);
}
