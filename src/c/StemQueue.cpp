// SPDX-License-Identifier: MIT
#include "c/StemQueue.h"

#include <algorithm>
#include <array>
#include <utility>

#include "api/SampleLayout.h"
#include "common/Stems.h"
#include "tonwerk/StreamGeometry.h"

namespace tonwerk::c
{

namespace
{

using geometry::channels;

constexpr std::size_t rowCount = channels * stemNames.size();

} // namespace

void StemQueue::push(const SampleRows& result)
{
    if (result.length == 0)
        return;
    Stretch stretch{std::vector<float>(rowCount * result.length), result.length};
    const auto row = [&](std::size_t stem, std::size_t channel)
    { return stretch.samples.data() + (channels * stem + channel) * result.length; };
    for (std::size_t i = 0; i < result.rowCount; ++i) // the mixture to the place of the residual
        std::copy_n(result.row(i), result.length, row(i / channels, i % channels));
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        std::array<const float*, modelStemCount> stems{};
        for (std::size_t stem = 0; stem < stems.size(); ++stem)
            stems.at(stem) = row(stem, channel);
        sumAndSubtract(stems, result.length, row(residualStem, channel), row(mixStem, channel));
    }
    stretches.push_back(std::move(stretch));
    frames += result.length;
}

void StemQueue::clear()
{
    stretches.clear();
    position = 0;
    frames = 0;
}

/// Calls copy(stretch, position in it, place in the targets, frames) for each piece.
template <typename Copy>
std::size_t StemQueue::read(std::size_t wanted, Copy copy) noexcept
{
    std::size_t done = 0;
    while (done < wanted && !stretches.empty())
    {
        const Stretch& oldest = stretches.front();
        const std::size_t count = std::min(wanted - done, oldest.length - position);
        copy(oldest, position, done, count);
        done += count;
        position += count;
        if (position == oldest.length)
        {
            stretches.pop_front();
            position = 0;
        }
    }
    frames -= done;
    return done;
}

std::size_t StemQueue::readInterleaved(float* const* targets, std::size_t wanted) noexcept
{
    return read(wanted,
                [&](const Stretch& stretch, std::size_t from, std::size_t to, std::size_t count)
                {
                    for (std::size_t stem = 0; stem < stemNames.size(); ++stem)
                    {
                        if (targets[stem] == nullptr)
                            continue;
                        float* pairs = targets[stem] + channels * to;
                        const float* left = stretch.row(channels * stem) + from;
                        const float* right = stretch.row(channels * stem + 1) + from;
                        for (std::size_t i = 0; i < count; ++i)
                        {
                            pairs[2 * i] = left[i];
                            pairs[2 * i + 1] = right[i];
                        }
                    }
                });
}

std::size_t StemQueue::readPlanar(float* const* targets, std::size_t wanted) noexcept
{
    return read(wanted,
                [&](const Stretch& stretch, std::size_t from, std::size_t to, std::size_t count)
                {
                    for (std::size_t row = 0; row < rowCount; ++row)
                        if (targets[row] != nullptr)
                            std::copy_n(stretch.row(row) + from, count, targets[row] + to);
                });
}

} // namespace tonwerk::c
