// SPDX-License-Identifier: MIT
#include "api/SampleLayout.h"

namespace tonwerk
{

std::vector<float> hostSamples(const float* rows, std::size_t frames, bool interleaved)
{
    if (!interleaved)
        return {rows, rows + 2 * frames};
    std::vector<float> samples(2 * frames);
    for (std::size_t i = 0; i < frames; ++i)
    {
        samples[2 * i] = rows[i];
        samples[2 * i + 1] = rows[frames + i];
    }
    return samples;
}

std::vector<float> sumAndSubtract(const std::vector<std::vector<float>>& stems, std::vector<float>& mixture)
{
    const float* first = stems[0].data();
    const float* second = stems[1].data();
    const float* third = stems[2].data();
    const float* fourth = stems[3].data();
    const float* fifth = stems[4].data();
    const float* sixth = stems[5].data();
    std::vector<float> sum(mixture.size());
    for (std::size_t i = 0; i < sum.size(); ++i)
    {
        const float total = ((((first[i] + second[i]) + third[i]) + fourth[i]) + fifth[i]) + sixth[i];
        sum[i] = total;
        mixture[i] -= total;
    }
    return sum;
}

} // namespace tonwerk
