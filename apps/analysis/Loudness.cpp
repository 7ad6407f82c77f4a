// SPDX-License-Identifier: MIT
#include "analysis/Loudness.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace tonwerk::app
{

namespace
{

constexpr double absoluteGate = -70.0;
constexpr double relativeGate = -10.0;
/// The bins of gating blocks by loudness. The sums in them are exact; only which blocks the relative gate
/// leaves out is as coarse as this, and those weigh a tenth of the others.
constexpr double lufsPerBin = 0.05;
constexpr double highestLufs = 30.0;

/// Loudness of a mean square, and back.
double lufsOf(double meanSquare)
{
    return -0.691 + 10.0 * std::log10(meanSquare);
}

std::size_t binOf(double lufs)
{
    return static_cast<std::size_t>((std::min(lufs, highestLufs) - absoluteGate) / lufsPerBin);
}

} // namespace

Loudness::Loudness(unsigned channels, unsigned sampleRate)
    : filters(channels, {shelf(sampleRate), highPass(sampleRate)}), stepFrames((sampleRate + 5) / 10),
      bins(binOf(highestLufs) + 1)
{
}

// BS.1770 gives both filters' coefficients for 48 kHz only. The constants here are those of the analogue
// filters behind them, so that the bilinear transform gives the same filters at any rate (De Man,
// "Evaluation of Implementations of the EBU R128 Loudness Measurement", AES 145, 2018).
Loudness::Filter Loudness::shelf(double sampleRate)
{
    const double k = std::tan(std::numbers::pi * 1681.974450955533 / sampleRate);
    const double q = 0.7071752369554196;
    const double high = std::pow(10.0, 3.999843853973347 / 20.0);
    const double band = std::pow(high, 0.4996667741545416);
    const double scale = 1.0 + k / q + k * k;
    return {{(high + band * k / q + k * k) / scale, 2.0 * (k * k - high) / scale,
             (high - band * k / q + k * k) / scale},
            {2.0 * (k * k - 1.0) / scale, (1.0 - k / q + k * k) / scale}};
}

Loudness::Filter Loudness::highPass(double sampleRate)
{
    const double k = std::tan(std::numbers::pi * 38.13547087602444 / sampleRate);
    const double q = 0.5003270373238773;
    const double scale = 1.0 + k / q + k * k;
    return {{1.0, -2.0, 1.0}, {2.0 * (k * k - 1.0) / scale, (1.0 - k / q + k * k) / scale}};
}

double Loudness::Filter::pass(double sample)
{
    const double result = forward[0] * sample + first;
    first = forward[1] * sample - back[0] * result + second;
    second = forward[2] * sample - back[1] * result;
    return result;
}

void Loudness::feed(std::span<const float> samples)
{
    for (std::size_t place = 0; place < samples.size(); place += filters.size())
    {
        for (std::size_t channel = 0; channel < filters.size(); ++channel)
        {
            const float sample = samples[place + channel];
            auto& [shelf, highPass] = filters[channel];
            const double weighted =
                highPass.pass(shelf.pass(std::isfinite(sample) ? static_cast<double>(sample) : 0.0));
            stepEnergy += weighted * weighted;
        }
        if (++framesInStep == stepFrames)
            endStep();
    }
}

/// A gating block is 0.4 s long and begins every 0.1 s.
void Loudness::endStep()
{
    steps.at(stepCount++ % steps.size()) = stepEnergy;
    stepEnergy = 0.0;
    framesInStep = 0;
    // What decays in the filters during silence would become numbers that processors are slow with.
    for (auto& channel : filters)
        for (Filter& filter : channel)
            for (double* const memory : {&filter.first, &filter.second})
                if (std::abs(*memory) < 1e-30)
                    *memory = 0.0;
    if (stepCount < steps.size())
        return;
    const double meanSquare =
        std::accumulate(steps.begin(), steps.end(), 0.0) / static_cast<double>(steps.size() * stepFrames);
    const double lufs = lufsOf(meanSquare);
    if (lufs < absoluteGate)
        return;
    Bin& bin = bins.at(binOf(lufs));
    bin.energy += meanSquare;
    ++bin.blocks;
}

Loudness::Bin Loudness::binsFrom(std::size_t lowest) const
{
    Bin all;
    for (std::size_t bin = lowest; bin < bins.size(); ++bin)
    {
        all.energy += bins[bin].energy;
        all.blocks += bins[bin].blocks;
    }
    return all;
}

std::optional<double> Loudness::integrated() const
{
    const Bin loudEnough = binsFrom(0);
    if (loudEnough.blocks == 0)
        return std::nullopt;
    const double gate = lufsOf(loudEnough.energy / static_cast<double>(loudEnough.blocks)) + relativeGate;
    const Bin gated = binsFrom(binOf(std::max(gate, absoluteGate)));
    return lufsOf(gated.energy / static_cast<double>(gated.blocks));
}

} // namespace tonwerk::app
