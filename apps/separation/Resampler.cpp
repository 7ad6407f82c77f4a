// SPDX-License-Identifier: MIT
#include "separation/Resampler.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include <CDSPResampler.h>

namespace tonwerk::app
{

namespace
{

/// Frames per call of the filters.
constexpr std::size_t stepFrames = 4096;

} // namespace

struct Resampler::Channels
{
    Channels(double fromRate, double toRate)
        : left(fromRate, toRate, stepFrames), right(fromRate, toRate, stepFrames)
    {
    }

    /// \return frames appended to `result`
    std::size_t step(std::span<const float> stereo, std::vector<float>& result)
    {
        const std::size_t frames = stereo.size() / 2;
        for (std::size_t frame = 0; frame < frames; ++frame)
        {
            inputs[0][frame] = static_cast<double>(stereo[2 * frame]);
            inputs[1][frame] = static_cast<double>(stereo[2 * frame + 1]);
        }
        std::array<double*, 2> outputs{};
        const int count = left.process(inputs[0].data(), static_cast<int>(frames), outputs[0]);
        right.process(inputs[1].data(), static_cast<int>(frames), outputs[1]);
        for (int frame = 0; frame < count; ++frame)
            for (const double* const output : outputs)
                result.push_back(static_cast<float>(output[frame]));
        return static_cast<std::size_t>(count);
    }

    r8b::CDSPResampler24 left;
    r8b::CDSPResampler24 right;
    std::array<std::vector<double>, 2> inputs{std::vector<double>(stepFrames),
                                              std::vector<double>(stepFrames)};
};

Resampler::Resampler(unsigned fromRate, unsigned toRate)
    : channels(std::make_unique<Channels>(fromRate, toRate))
{
}

Resampler::~Resampler() = default;
Resampler::Resampler(Resampler&&) noexcept = default;
Resampler& Resampler::operator=(Resampler&&) noexcept = default;

void Resampler::feed(std::span<const float> stereo, std::vector<float>& result)
{
    for (std::size_t place = 0; place < stereo.size(); place += 2 * stepFrames)
        returned +=
            channels->step(stereo.subspan(place, std::min(2 * stepFrames, stereo.size() - place)), result);
}

void Resampler::finish(std::uint64_t frames, std::vector<float>& result)
{
    const std::vector<float> silence(2 * stepFrames, 0.0F);
    while (returned < frames)
        returned += channels->step(silence, result);
    result.resize(result.size() - static_cast<std::size_t>(2 * (returned - frames)));
    returned = frames;
}

} // namespace tonwerk::app
