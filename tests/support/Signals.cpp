#include "support/Signals.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

std::uint32_t randomSeed()
{
    const auto given = GTEST_FLAG_GET(random_seed);
    constexpr std::uint32_t largestFlag = 99999;
    return given != 0 ? static_cast<std::uint32_t>(given) : std::random_device{}() % largestFlag + 1;
}

std::string seedText(std::uint32_t seed)
{
    return "repeat with --gtest_random_seed=" + std::to_string(seed);
}

Array smoothNoise(std::size_t channels, std::size_t length, std::uint32_t seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-0.5F, 0.5F);
    Array samples = Array::from_shape({channels, length});
    // (1 + z^-1)^4 / 16 has a fourfold zero at half the sample rate and a gain of at most 1.
    constexpr float weights[] = {1.0F / 16, 4.0F / 16, 6.0F / 16, 4.0F / 16, 1.0F / 16};
    std::vector<float> white(length + 4);
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        std::generate(white.begin(), white.end(), [&] { return uniform(generator); });
        for (std::size_t i = 0; i < length; ++i)
            samples(channel, i) = std::inner_product(std::begin(weights), std::end(weights), &white[i], 0.0F);
    }
    return samples;
}

Array countingSamples(std::size_t channels, std::size_t length)
{
    Array samples = Array::from_shape({channels, length});
    std::iota(samples.begin(), samples.end(), 1.0F);
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

std::vector<std::size_t> shapeOf(const Array& array)
{
    return {array.shape().begin(), array.shape().end()};
}

::testing::AssertionResult samplesNear(std::span<const float> actual, std::span<const float> expected,
                                       double tolerance)
{
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure() << actual.size() << " samples instead of " << expected.size();
    double worst = 0.0;
    std::size_t where = 0;
    std::size_t outside = 0;
    for (std::size_t i = 0; i < actual.size(); ++i)
    {
        const double difference = std::abs(static_cast<double>(actual[i]) - static_cast<double>(expected[i]));
        if (difference <= tolerance)
            continue;
        ++outside;
        if (outside == 1 || difference > worst)
        {
            worst = difference;
            where = i;
        }
    }
    if (outside == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << outside << " samples differ by more than " << tolerance << ", worst sample " << where << ": "
           << actual[where] << " instead of " << expected[where];
}
