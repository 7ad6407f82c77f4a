// SPDX-License-Identifier: MIT
#include "tools/SelfCheck.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <numbers>
#include <string_view>
#include <vector>

#include <tonwerk/StreamFeeder.h>

#include "separation/NullMeter.h"
#include "separation/Stems.h"
#include "tools/SelfCheckModel.h"

namespace tonwerk::app
{

namespace
{

constexpr std::size_t sampleRate = 44100;
constexpr std::size_t frames = 20 * sampleRate;

/// The factors of gains.onnx in the order of stemNames.
constexpr std::array<double, modelStemCount> gains{10.0 / 32, 8.0 / 32, 4.0 / 32,
                                                   3.0 / 32,  1.0 / 32, 6.0 / 32};

/// Two tones per channel that swell and fade: without edges, and without energy at the Nyquist frequency,
/// which networks do not see.
std::vector<float> tones()
{
    std::vector<float> stereo;
    stereo.reserve(2 * frames);
    for (std::size_t frame = 0; frame < frames; ++frame)
    {
        const double turn = 2.0 * std::numbers::pi * static_cast<double>(frame) / sampleRate;
        const double swell = std::sin(std::numbers::pi * static_cast<double>(frame) / frames);
        for (const double frequency : {220.0, 331.0})
            stereo.push_back(static_cast<float>(
                0.4 * swell * swell * (std::sin(frequency * turn) + std::sin(13.0 * frequency * turn))));
    }
    return stereo;
}

/// Largest error of stems that begin at the input's sample `start`.
double stemErrorOf(const StreamFeeder::Stems& stems, const std::vector<float>& input, std::size_t start)
{
    double largest = 0.0;
    for (std::size_t stem = 0; stem < gains.size() && !stems.empty(); ++stem)
        for (std::size_t sample = 0; sample < stems.at(stem).size(); ++sample)
        {
            const double expected = gains.at(stem) * static_cast<double>(input.at(start + sample));
            const double error = std::abs(static_cast<double>(stems.at(stem)[sample]) - expected);
            largest = std::isnan(error) ? std::numeric_limits<double>::infinity() : std::max(largest, error);
        }
    return largest;
}

} // namespace

SelfCheckResult runSelfCheck()
{
    const std::string_view model = selfCheckModel();
    const std::vector<float> input = tones();
    StreamFeeder feeder(std::make_shared<InferenceContext>(ModelData{model.data(), model.size(), ""}),
                        processorConfig(StemSet().set()));
    const auto start = std::chrono::steady_clock::now();
    const StreamFeeder::Stems stems = feeder.feed(input);
    const StreamFeeder::Stems rest = feeder.finish();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;

    NullMeter nullMeter;
    nullMeter.feed(input);
    nullMeter.compare(stems);
    nullMeter.compare(rest);
    const std::size_t boundary = stems.front().size();
    return {static_cast<double>(frames) / sampleRate, taken.count(),
            std::max(stemErrorOf(stems, input, 0), stemErrorOf(rest, input, boundary)), nullMeter.peak()};
}

} // namespace tonwerk::app
