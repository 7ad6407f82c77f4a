// SPDX-License-Identifier: MIT
#include "api/SampleLayout.h"

namespace tonwerk
{

void appendHostSamples(const float* left, const float* right, std::size_t frames, bool interleaved,
                       std::vector<float>& samples)
{
    if (!interleaved)
    {
        samples.insert(samples.end(), left, left + frames);
        samples.insert(samples.end(), right, right + frames);
        return;
    }
    const std::size_t before = samples.size();
    samples.resize(before + 2 * frames);
    float* pairs = samples.data() + before;
    for (std::size_t i = 0; i < frames; ++i)
    {
        pairs[2 * i] = left[i];
        pairs[2 * i + 1] = right[i];
    }
}

void sumAndSubtract(std::span<const float* const, modelStemCount> stems, std::size_t length, float* mixture,
                    float* sum)
{
    const float* first = stems[0];
    const float* second = stems[1];
    const float* third = stems[2];
    const float* fourth = stems[3];
    const float* fifth = stems[4];
    const float* sixth = stems[5];
    for (std::size_t i = 0; i < length; ++i)
    {
        const float total = ((((first[i] + second[i]) + third[i]) + fourth[i]) + fifth[i]) + sixth[i];
        sum[i] = total;
        mixture[i] -= total;
    }
}

} // namespace tonwerk
