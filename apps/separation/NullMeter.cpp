// SPDX-License-Identifier: MIT
#include "separation/NullMeter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "separation/Stems.h"

namespace tonwerk::app
{

void NullMeter::feed(std::span<const float> input)
{
    pending.insert(pending.end(), input.begin(), input.end());
}

void NullMeter::compare(const std::vector<std::vector<float>>& stems)
{
    constexpr std::size_t addends = modelStemCount + 1;
    const std::size_t count = std::min(pending.size(), stems.front().size());
    for (std::size_t sample = 0; sample < count; ++sample)
    {
        const double input = static_cast<double>(pending[sample]);
        if (!std::isfinite(input))
        {
            ++skipped;
            continue;
        }
        double difference = -input;
        for (std::size_t stem = 0; stem < addends; ++stem)
            difference += static_cast<double>(stems[stem][sample]);
        const double size = std::abs(difference);
        largest = std::isnan(size) ? std::numeric_limits<double>::infinity() : std::max(largest, size);
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(count));
}

} // namespace tonwerk::app
