/// \file ChunkProcessorFixture.h
/// Feeding streams through chunk processors.
#ifndef TONWERK_TESTS_PIPELINE_CHUNKPROCESSORFIXTURE_H
#define TONWERK_TESTS_PIPELINE_CHUNKPROCESSORFIXTURE_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "pipeline/ChunkProcessor.h"
#include "support/FakeInference.h"
#include "support/ReferenceTransform.h"
#include "support/Signals.h"

/// Joins results along the time axis; those without dimensions count as empty.
inline Array joinResults(const std::vector<Array>& results, std::size_t rows, std::size_t channels)
{
    std::size_t length = 0;
    for (const Array& result : results)
        length += lastExtent(result);
    Array joined = Array::from_shape({rows, channels, length});
    for (std::size_t r = 0; r < rows; ++r)
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            float* target = joined.data() + (r * channels + channel) * length;
            for (const Array& result : results)
                if (result.dimension() == 3)
                    target = std::copy_n(row(result, r, channel).data(), lastExtent(result), target);
        }
    return joined;
}

/// Feeds a stream in blocks of these sizes, the last one with eof.
inline std::vector<Array> feed(ChunkProcessor& processor, const Array& signal,
                               const std::vector<std::size_t>& blocks)
{
    std::vector<Array> results;
    std::size_t position = 0;
    for (std::size_t i = 0; i < blocks.size(); ++i)
    {
        results.push_back(processor.process(timeSlice(signal, position, blocks[i]), i + 1 == blocks.size()));
        position += blocks[i];
    }
    EXPECT_EQ(position, signal.shape(1)) << "the blocks make up the signal";
    return results;
}

/// Feeds a stream in blocks of the processor's own threshold.
inline std::vector<Array> feedReadyBlocks(ChunkProcessor& processor, const Array& signal)
{
    std::vector<Array> results;
    for (std::size_t position = 0; position < signal.shape(1);)
    {
        const std::size_t count = std::min(processor.readyThreshold(), signal.shape(1) - position);
        const Array block = timeSlice(signal, position, count);
        position += count;
        results.push_back(processor.process(block, position == signal.shape(1)));
    }
    return results;
}

/// A row with its mirror image before and after it, and zeros where that does not reach.
inline std::vector<float> mirrored(std::span<const float> samples, std::size_t before, std::size_t after,
                                   std::size_t zeros)
{
    std::vector<float> padded;
    for (std::size_t i = before; i > 0; --i)
        padded.push_back(samples[i]);
    padded.insert(padded.end(), samples.begin(), samples.end());
    for (std::size_t i = 0; i < after; ++i)
        padded.push_back(samples[samples.size() - 2 - i]);
    padded.resize(padded.size() + zeros);
    return padded;
}

/// Two channels, frames of 64 samples 16 apart and segments of 20 frames: 240 samples make the first chunk
/// ready and 208 every later one, chunks are at most 304 and 336 samples long, and the buffer holds 480.
class SmallPipeline : public ::testing::Test
{
protected:
    static constexpr std::size_t channels = 2;
    static constexpr std::size_t fftSize = 64;
    static constexpr std::size_t hop = 16;
    static constexpr std::size_t segmentFrames = 20;
    static constexpr std::size_t stems = 3;
    static constexpr std::size_t firstReady = 240;
    static constexpr std::size_t laterReady = 208;
    static constexpr std::size_t capacity = 480;

    ChunkProcessor make() const { return {model, channels, fftSize, hop, 0, segmentFrames, stems}; }

    Array joined(const std::vector<Array>& results) const
    {
        return joinResults(results, stems + 1, channels);
    }

    /// Where frames begin that follow each other without gaps.
    static std::vector<std::size_t> regularFrames(std::size_t paddedLength)
    {
        std::vector<std::size_t> starts;
        for (std::size_t start = 0; start + fftSize <= paddedLength; start += hop)
            starts.push_back(start);
        return starts;
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

/// The sizes that the library uses, with a single stem.
class FullPipeline : public ::testing::Test
{
protected:
    static constexpr std::size_t channels = 2;
    static constexpr std::size_t fftSize = 4096;
    static constexpr std::size_t hop = 1024;

    std::shared_ptr<FakeInference> model = std::make_shared<FakeInference>(identityModel());
    ChunkProcessor processor{model, channels, fftSize, hop, 0, 256, 1};
};

#endif // TONWERK_TESTS_PIPELINE_CHUNKPROCESSORFIXTURE_H
