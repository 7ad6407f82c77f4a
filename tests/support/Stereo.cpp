// SPDX-License-Identifier: MIT
#include "support/Stereo.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

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
