// SPDX-License-Identifier: MIT
#include "tools/RunChecks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <random>
#include <string>

#include <tonwerk/StreamGeometry.h>

#include "inference/ModelInterface.h"
#include "separation/Runtime.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// Tolerance: several threads may add in another order from run to run. Nobody hears this.
constexpr double sameUpTo = 1e-4;
constexpr double sampleRate = 44100.0;

NetworkRunner::Flags allFlags()
{
    NetworkRunner::Flags flags{};
    flags.fill(true);
    return flags;
}

/// Noise at the level of loud music, falling towards high frequencies; the same on every system.
std::vector<float> testSpectrogram()
{
    const auto rows = static_cast<std::size_t>(spectrogramShape[1] * spectrogramShape[2]);
    const auto bins = static_cast<std::size_t>(spectrogramShape[3]);
    std::mt19937 random(1);
    std::vector<float> values;
    values.reserve(rows * bins);
    for (std::size_t row = 0; row < rows; ++row)
        for (std::size_t bin = 0; bin < bins; ++bin)
        {
            const double uniform = static_cast<double>(random()) / static_cast<double>(std::mt19937::max());
            const double level = 200.0 / (1.0 + static_cast<double>(bin) / 32.0);
            values.push_back(static_cast<float>(level * (2.0 * uniform - 1.0)));
        }
    return values;
}

double peakOf(const std::vector<float>& values)
{
    float peak = 0.0F;
    for (const float value : values)
        peak = std::max(peak, std::abs(value));
    return static_cast<double>(peak);
}

double largestDifference(const std::vector<float>& left, const std::vector<float>& right)
{
    float largest = 0.0F;
    for (std::size_t i = 0; i < left.size(); ++i)
        largest = std::max(largest, std::abs(left[i] - right[i]));
    return static_cast<double>(largest);
}

double energyOf(const std::vector<float>& values)
{
    double energy = 0.0;
    for (const float value : values)
        energy += static_cast<double>(value) * static_cast<double>(value);
    return energy;
}

std::string decimals(double value, int digits)
{
    char text[64]; // NOLINT(modernize-avoid-c-arrays): what snprintf fills
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string rounded(double value)
{
    char text[64]; // NOLINT(modernize-avoid-c-arrays): what snprintf fills
    std::snprintf(text, sizeof text, "%.2g", value);
    return text;
}

std::string nameOf(std::size_t stem)
{
    return '"' + std::string(contractOutputs.at(stem)) + '"';
}

} // namespace

RunChecks::RunChecks(Ort::Session& session, Findings& findings)
    : runner(session), findings(findings), input(testSpectrogram())
{
}

void RunChecks::makeAll()
{
    try
    {
        runner.run(input, allFlags());
        reference = runner.results();
        if (!checkNumbers())
            return;
        checkEquality();
        checkSilence();
        checkFlags();
        checkLevels();
        addSpeed();
    }
    catch (const Ort::Exception& failure)
    {
        findings.addError("It cannot be run: " + runtimeReason(failure) + ".");
    }
}

bool RunChecks::checkNumbers()
{
    bool finite = true;
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
    {
        const auto bad = std::count_if(reference.at(stem).begin(), reference.at(stem).end(),
                                       [](float value) { return !std::isfinite(value); });
        if (bad == 0)
            continue;
        finite = false;
        findings.addError("Of the numbers in the output " + nameOf(stem) + ", " + std::to_string(bad) +
                          " are not finite.");
    }
    if (finite)
        findings.addPass("All numbers that it gives are finite.");
    return finite;
}

double RunChecks::timedRun()
{
    seconds.push_back(runner.run(input, allFlags()));
    double largest = 0.0;
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        largest = std::max(largest, largestDifference(reference.at(stem), runner.results().at(stem)));
    return largest / peakOf(input);
}

void RunChecks::checkEquality()
{
    double difference = 0.0;
    for (int run = 0; run < 3; ++run)
        difference = std::max(difference, timedRun());
    if (difference == 0.0)
        findings.addPass("Equal input gives equal results, bit for bit.");
    else if (difference < sameUpTo)
        findings.addWarning("Equal input gives results that differ by up to " + rounded(difference) +
                            " of the input's peak.");
    else
        findings.addError("Equal input gives different results, by up to " + rounded(difference) +
                          " of the input's peak.");
}

void RunChecks::checkSilence()
{
    runner.run(std::vector<float>(input.size()), allFlags());
    bool silent = true;
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
    {
        const std::vector<float>& result = runner.results().at(stem);
        if (std::all_of(result.begin(), result.end(), [](float value) { return value == 0.0F; }))
            continue;
        silent = false;
        findings.addError("Silence gives sound in the output " + nameOf(stem) + ", or no finite numbers.");
    }
    if (silent)
        findings.addPass("Silence gives silence.");
}

void RunChecks::checkFlags()
{
    std::size_t silenced = 0;
    std::size_t others = 0;
    for (std::size_t off = 0; off < modelStemCount; ++off)
    {
        NetworkRunner::Flags flags = allFlags();
        flags.at(off) = false;
        runner.run(input, flags);
        silenced += peakOf(runner.results().at(off)) < peakOf(reference.at(off)) ? 1U : 0U;
        for (std::size_t stem = 0; stem < modelStemCount; ++stem)
            others += stem != off && largestDifference(reference.at(stem), runner.results().at(stem)) >
                                         sameUpTo * peakOf(input)
                          ? 1U
                          : 0U;
    }
    if (silenced == 0 && others == 0)
        findings.add("note", "It ignores the flags; the library silences the stems that are not asked for.");
    else
        findings.add("note", "It heeds the flags: without its flag, " + std::to_string(silenced) +
                                 " of the 6 stems get quieter" +
                                 (others > 0 ? ", and that changes other stems, too." : "."));
}

// A stem has less energy than the mixture. More of it betrays a missing factor or another transform.
void RunChecks::checkLevels() const
{
    constexpr double tolerance = 1.001;
    const double whole = energyOf(input);
    std::vector<float> sum(input.size());
    std::size_t tooLoud = 0;
    for (const std::vector<float>& stem : reference)
    {
        tooLoud += energyOf(stem) > tolerance * whole ? 1U : 0U;
        for (std::size_t i = 0; i < sum.size(); ++i)
            sum[i] += stem[i];
    }
    const double level = std::round(100.0 * std::log10(energyOf(sum) / whole)) / 10.0 + 0.0; // no -0
    if (tooLoud > 0 || energyOf(sum) > tolerance * whole)
        findings.addWarning("The stems are louder than what they are made of: " + std::to_string(tooLoud) +
                            " of them by themselves, their sum by " + decimals(level, 1) + " dB.");
    else
        findings.addPass("No stem is louder than what it is made of, nor is their sum (" +
                         decimals(level, 1) + " dB).");
}

void RunChecks::addSpeed() const
{
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    const double median = sorted[sorted.size() / 2];
    const double sound = static_cast<double>(geometry::laterBlock) / sampleRate;
    findings.add("speed", decimals(median, 3) + " s for each " + decimals(sound, 2) +
                              " s of sound: real-time factor " + decimals(median / sound, 3) + '.');
}

} // namespace tonwerk::app
