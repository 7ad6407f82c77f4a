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

#include "separation/Model.h"
#include "separation/StemStream.h"
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
double stemErrorOf(const StemStream::Stems& stems, const std::vector<float>& input, std::size_t start)
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

SelfCheckResult runSelfCheck(std::vector<std::string>& log)
{
    const std::vector<float> input = tones();
    const auto model = std::make_shared<Model>(selfCheckModel(), "The self-test's model", "", 0);
    StemStream stream(model, StemSet().set(), qualityNamed(defaultQuality), sampleRate);
    const auto start = std::chrono::steady_clock::now();
    const StemStream::Stems stems = stream.feed(input);
    const StemStream::Stems rest = stream.finish();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    for (LibraryLog::Line& line : model->log().take())
        log.push_back(std::move(line.text));
    const std::size_t boundary = stems.front().size();
    return {static_cast<double>(frames) / sampleRate, taken.count(),
            std::max(stemErrorOf(stems, input, 0), stemErrorOf(rest, input, boundary)), stream.nullPeak()};
}

} // namespace tonwerk::app
