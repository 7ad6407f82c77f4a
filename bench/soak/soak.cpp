// SPDX-License-Identifier: MIT
// Streams hours of audio through the built library and watches that nothing grows, drifts or goes missing.
//
//   soak MODEL.onnx MINUTES
//
// MODEL's stems must add up to its input. Ends with 0 if every result had its length and its samples, and if
// memory, threads and handles were the same at the end as after the first minute.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ProcessFigures.h"
#include "tonwerk/StreamGeometry.h"
#include "tonwerk/TonwerkProc.h"

namespace
{

using namespace tonwerk::geometry;

constexpr std::uint64_t framesPerMinute = 60 * 44100;
constexpr std::uint64_t streamEdge =
    fftSize;                          // frames at either end where the mirror image beyond it is heard
constexpr double tolerance = 1e-5;    // full scale is 1; single precision gives some 2e-7
constexpr double allowedGrowth = 1.0; // MB

constexpr std::size_t mix = 7;
constexpr std::size_t residual = 6;

/// An endless stereo signal: noise that repeats after a prime number of samples, so that every block is
/// different. Smoothed, for the pipeline does not keep the highest frequency.
class EndlessNoise
{
public:
    EndlessNoise() : table(period)
    {
        std::mt19937 generator(1);
        std::uniform_real_distribution<float> amplitude(-0.5F, 0.5F);
        std::vector<float> white(period);
        std::generate(white.begin(), white.end(), [&] { return amplitude(generator); });
        const auto weighted = [&white](std::size_t i, float weight) { return weight * white[i % period]; };
        for (std::size_t i = 0; i < period; ++i)
            table[i] = (weighted(i, 1.0F) + weighted(i + 1, 4.0F) + weighted(i + 2, 6.0F) +
                        weighted(i + 3, 4.0F) + weighted(i + 4, 1.0F)) /
                       16.0F;
    }

    float at(std::uint64_t frame, std::size_t channel) const
    {
        return table[static_cast<std::size_t>((frame + channel * 7919) % period)];
    }

    std::vector<float> block(std::uint64_t first, std::uint64_t frames) const
    {
        std::vector<float> samples;
        samples.reserve(static_cast<std::size_t>(2 * frames));
        for (std::uint64_t frame = first; frame < first + frames; ++frame)
            for (std::size_t channel = 0; channel < 2; ++channel)
                samples.push_back(at(frame, channel));
        return samples;
    }

private:
    static constexpr std::size_t period = 99991;
    std::vector<float> table;
};

void require(bool holds, const std::string& what)
{
    if (!holds)
        throw std::runtime_error(what);
}

class Soak
{
public:
    /// \param loaded figures of the process before the processor was built
    Soak(tonwerk::TonwerkProc& processor, std::uint64_t totalFrames, const ProcessFigures& loaded)
        : processor(processor), total(totalFrames), loaded(loaded)
    {
    }

    void run()
    {
        std::printf("runtime and model loaded: %.1f MB\n", loaded.megabytes);
        ProcessFigures settled{};
        for (std::uint64_t minute = 0; fed < total; ++minute)
        {
            while (fed < total && fed < (minute + 1) * framesPerMinute)
                feed();
            if (minute == 0)
                settled = processFigures();
            if (minute == 0 || (minute + 1) % 60 == 0)
                report(minute + 1);
        }
        const auto rest = processor.process({}, true);
        check(rest, overlap);
        require(returned == fed, "the stream has lost or gained frames");
        compare(settled, processFigures());
    }

private:
    void feed()
    {
        const std::uint64_t frames = processor.maxInputSize();
        const std::vector<float> block = noise.block(fed, frames);
        const bool first = fed == 0;
        fed += frames;
        const auto began = std::chrono::steady_clock::now();
        const auto stems = processor.process(block, false);
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - began;
        times.push_back(taken.count());
        check(stems, first ? firstResult : laterBlock);
    }

    /// The middle one of the times since the last report, which are forgotten.
    double medianTime()
    {
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        const double median = *middle;
        times.clear();
        return median;
    }

    void check(const std::vector<std::vector<float>>& stems, std::uint64_t length)
    {
        require(stems.size() == 8, "a call has not returned eight stems");
        for (const auto& stem : stems)
            require(stem.size() == 2 * length, "a result has not the length that it should have");
        for (std::uint64_t i = 0; i < length; ++i)
            for (std::size_t channel = 0; channel < 2; ++channel)
                checkSample(stems, static_cast<std::size_t>(2 * i + channel), returned + i, channel);
        returned += length;
    }

    void checkSample(const std::vector<std::vector<float>>& stems, std::size_t at, std::uint64_t frame,
                     std::size_t channel)
    {
        const auto expected = static_cast<double>(noise.at(frame, channel));
        const auto sum = static_cast<double>(stems[mix][at]);
        require(std::abs(sum + static_cast<double>(stems[residual][at]) - expected) <= tolerance,
                "residual and mix do not add up to the input");
        const bool edge = frame < streamEdge || returned + overlap == fed;
        if (!edge)
            largestError = std::max(largestError, std::abs(sum - expected));
        require(edge || largestError <= tolerance, "the stems do not add up to the input");
    }

    void report(std::uint64_t minutes)
    {
        const ProcessFigures now = processFigures();
        std::printf(
            "after %4llu min: %.1f MB above the loaded model, at most %.1f MB; %zu threads, %zu handles; "
            "a chunk took %.1f ms; largest error so far %.2g\n",
            static_cast<unsigned long long>(minutes), now.megabytes - loaded.megabytes,
            now.peakMegabytes - loaded.megabytes, now.threads, now.handles, medianTime(), largestError);
        std::fflush(stdout);
    }

    void compare(const ProcessFigures& before, const ProcessFigures& after) const
    {
        std::printf(
            "at the end: at most %.1f MB above the loaded model, %.2f MB more than after the first minute\n",
            after.peakMegabytes - loaded.megabytes, after.peakMegabytes - before.peakMegabytes);
        require(after.peakMegabytes - before.peakMegabytes <= allowedGrowth, "memory has grown");
        require(after.threads == before.threads, "the number of threads has changed");
        require(after.handles == before.handles, "the number of handles has changed");
    }

    tonwerk::TonwerkProc& processor;
    const EndlessNoise noise;
    const std::uint64_t total;
    const ProcessFigures loaded;
    std::uint64_t fed = 0;
    std::uint64_t returned = 0;
    double largestError = 0.0;
    std::vector<double> times; ///< of the calls since the last report, in milliseconds
};

} // namespace

int main(int argc, char** argv)
try
{
    if (argc != 3)
    {
        std::fprintf(stderr, "soak MODEL.onnx MINUTES\n");
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    const std::vector<char> model{std::istreambuf_iterator<char>(file), {}};
    auto context =
        std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{model.data(), model.size(), ""});
    tonwerk::TonwerkProcConfig config{};
    config.vocals = config.drum = config.piano = config.acousticGuitar = config.electricGuitar = config.bass =
        1;
    config.channels = 2;
    config.interleaved = true;
    const ProcessFigures loaded = processFigures();
    tonwerk::TonwerkProc processor(std::move(context), config);
    Soak(processor, std::strtoull(argv[2], nullptr, 10) * framesPerMinute, loaded).run();
    return 0;
}
catch (const std::exception& failure)
{
    std::fprintf(stderr, "soak: %s\n", failure.what());
    return 1;
}
