// SPDX-License-Identifier: MIT
#include "boundary/Streaming.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>

#include "support/ModelFile.h"

Stereo noise(std::size_t length, std::uint32_t seed)
{
    std::mt19937 generator(seed);
    Stereo signal;
    signal.left = smoothNoise(length, generator);
    signal.right = smoothNoise(length, generator);
    return signal;
}

Stereo silence(std::size_t length)
{
    return {std::vector<float>(length), std::vector<float>(length)};
}

Stereo slice(const Stereo& signal, std::size_t first, std::size_t count)
{
    const float* left = signal.left.data() + first;
    const float* right = signal.right.data() + first;
    return {{left, left + count}, {right, right + count}};
}

std::vector<float> packed(const Stereo& signal, bool interleaved)
{
    std::vector<float> samples(2 * signal.size());
    for (std::size_t i = 0; i < signal.size(); ++i)
    {
        samples[interleaved ? 2 * i : i] = signal.left[i];
        samples[interleaved ? 2 * i + 1 : signal.size() + i] = signal.right[i];
    }
    return samples;
}

Stereo unpacked(const std::vector<float>& samples, bool interleaved)
{
    Stereo signal = silence(samples.size() / 2);
    for (std::size_t i = 0; i < signal.size(); ++i)
    {
        signal.left[i] = samples[interleaved ? 2 * i : i];
        signal.right[i] = samples[interleaved ? 2 * i + 1 : signal.size() + i];
    }
    return signal;
}

float largestDifference(const Stereo& one, const Stereo& other, std::size_t first, std::size_t last)
{
    if (one.size() != other.size())
        return std::numeric_limits<float>::infinity();
    float largest = 0;
    for (std::size_t i = first; i < std::min(last, one.size()); ++i)
        for (const float difference : {one.left[i] - other.left[i], one.right[i] - other.right[i]})
            if (!std::isfinite(difference))
                return std::numeric_limits<float>::infinity();
            else
                largest = std::max(largest, std::abs(difference));
    return largest;
}

Stereo scaled(Stereo signal, float gain)
{
    for (auto* channel : {&signal.left, &signal.right})
        for (float& sample : *channel)
            sample *= gain;
    return signal;
}

tonwerk::TonwerkProcConfig allStems(bool interleaved)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = config.drum = config.piano = 1;
    config.acousticGuitar = config.electricGuitar = config.bass = 1;
    config.interleaved = interleaved;
    return config;
}

std::shared_ptr<tonwerk::InferenceContext> loadContext(const std::string& model)
{
    std::vector<char> bytes = readModel(model);
    auto context =
        std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{bytes.data(), bytes.size(), ""});
    std::fill(bytes.begin(), bytes.end(), '\0'); // whoever still reads them afterwards shall notice
    return context;
}

Stream::Stream(std::shared_ptr<tonwerk::InferenceContext> context, tonwerk::TonwerkProcConfig config)
    : handle(std::move(context), config), interleaved(config.interleaved)
{
}

std::size_t Stream::feed(const Stereo& block, bool eof)
{
    const auto stems = handle.process(packed(block, interleaved), eof);
    EXPECT_TRUE(stems.empty() || stems.size() == stemCount) << stems.size() << " vectors";
    const std::size_t length = stems.empty() ? 0 : stems[0].size() / 2;
    for (std::size_t i = 0; i < stems.size(); ++i)
    {
        EXPECT_EQ(stems[i].size(), 2 * length) << "stem " << i;
        const Stereo piece = unpacked(stems[i], interleaved);
        Stereo& whole = collected.stems.at(i);
        whole.left.insert(whole.left.end(), piece.left.begin(), piece.left.end());
        whole.right.insert(whole.right.end(), piece.right.begin(), piece.right.end());
    }
    collected.lengths.push_back(length);
    return length;
}

void Stream::feedAll(const Stereo& signal)
{
    std::size_t position = 0;
    do
    {
        const auto wanted = static_cast<std::size_t>(handle.maxInputSize());
        const std::size_t count = std::min(wanted, signal.size() - position);
        feed(slice(signal, position, count), position + count == signal.size());
        position += count;
    } while (position < signal.size());
}

StreamResult separate(std::shared_ptr<tonwerk::InferenceContext> context, const Stereo& signal,
                      tonwerk::TonwerkProcConfig config)
{
    Stream stream(std::move(context), config);
    stream.feedAll(signal);
    return stream.result();
}
