// SPDX-License-Identifier: MIT
#include "analysis/Activity.h"

#include <cmath>
#include <cstddef>

namespace tonwerk::app
{

namespace
{

constexpr double threshold = 1e-5; // mean square: -50 dBFS

} // namespace

Activity::Activity(unsigned channels, unsigned sampleRate)
    : channelCount(channels), rate(sampleRate), windowFrames(sampleRate / 20)
{
}

void Activity::feed(std::span<const float> samples)
{
    for (std::size_t place = 0; place < samples.size(); place += channelCount)
    {
        for (unsigned channel = 0; channel < channelCount; ++channel)
        {
            const auto sample = static_cast<double>(samples[place + channel]);
            squares += std::isfinite(sample) ? sample * sample : 0.0;
        }
        ++frames;
        if (++framesInWindow == windowFrames)
            endWindow();
    }
}

void Activity::endWindow()
{
    if (squares > threshold * static_cast<double>(windowFrames * channelCount))
        note(frames - windowFrames, frames);
    squares = 0.0;
    framesInWindow = 0;
}

void Activity::note(std::uint64_t begin, std::uint64_t end)
{
    const std::uint64_t shortestPause = rate / 2;
    if (!sounding.empty() && begin < sounding.back().second + shortestPause)
        sounding.back().second = end;
    else
        sounding.emplace_back(begin, end);
}

std::vector<std::pair<double, double>> Activity::ranges() const
{
    std::vector<std::pair<double, double>> seconds;
    for (const auto& [begin, end] : sounding)
        seconds.emplace_back(static_cast<double>(begin) / rate, static_cast<double>(end) / rate);
    return seconds;
}

} // namespace tonwerk::app
