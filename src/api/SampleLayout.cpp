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

void sumAndSubtract(std::span<const std::vector<float>, modelStemCount> stems, std::vector<float>& mixture,
                    std::vector<float>& sum)
{
    const float* first = stems[0].data();
    const float* second = stems[1].data();
    const float* third = stems[2].data();
    const float* fourth = stems[3].data();
    const float* fifth = stems[4].data();
    const float* sixth = stems[5].data();
    sum.resize(mixture.size());
    for (std::size_t i = 0; i < sum.size(); ++i)
    {
        const float total = ((((first[i] + second[i]) + third[i]) + fourth[i]) + fifth[i]) + sixth[i];
        sum[i] = total;
        mixture[i] -= total;
    }
}

} // namespace tonwerk
