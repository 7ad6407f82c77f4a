// SPDX-License-Identifier: MIT
#include "support/Signals.h"

#include <algorithm>
#include <cmath>

Array smoothNoise(std::size_t channels, std::size_t length, std::uint32_t seed)
{
    std::mt19937 generator(seed);
    Array samples = Array::from_shape({channels, length});
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        const std::vector<float> noise = smoothNoise(length, generator);
        std::copy(noise.begin(), noise.end(), samples.data() + channel * length);
    }
    return samples;
}

Array timeSlice(const Array& samples, std::size_t first, std::size_t count)
{
    Array slice = Array::from_shape({samples.shape(0), count});
    for (std::size_t channel = 0; channel < samples.shape(0); ++channel)
        std::copy_n(samples.data() + channel * samples.shape(1) + first, count,
                    slice.data() + channel * count);
    return slice;
}

std::span<const float> row(const Array& samples, std::size_t channel)
{
    return {samples.data() + channel * samples.shape(1), samples.shape(1)};
}

std::span<const float> row(const Array& stems, std::size_t stem, std::size_t channel)
{
    return {stems.data() + (stem * stems.shape(1) + channel) * stems.shape(2), stems.shape(2)};
}

SampleBlock blockOf(const Array& samples)
{
    return {samples.data(), samples.shape(0), samples.shape(1), samples.shape(1), 1};
}

SampleRows rowsOf(const Array& samples)
{
    return {samples.data(), samples.shape(0), samples.shape(1), samples.shape(1)};
}

std::vector<std::size_t> shapeOf(const Array& array)
{
    return {array.shape().begin(), array.shape().end()};
}

::testing::AssertionResult samplesNear(std::span<const float> actual, std::span<const float> expected,
                                       double tolerance)
{
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure() << actual.size() << " samples instead of " << expected.size();
    double worst = -1.0;
    std::size_t where = 0;
    for (std::size_t i = 0; i < actual.size(); ++i)
    {
        const double difference = std::abs(static_cast<double>(actual[i]) - static_cast<double>(expected[i]));
        if (!(difference <= tolerance) && !(difference <= worst))
        {
            worst = difference;
            where = i;
        }
    }
    if (worst == -1.0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "sample " << where << " is " << actual[where] << " instead of "
                                         << expected[where] << ", tolerance " << tolerance;
}
