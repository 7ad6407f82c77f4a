// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_ANALYSIS_LOUDNESS_H
#define TONWERK_APPS_ANALYSIS_LOUDNESS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tonwerk::app
{

/// Measures the integrated loudness of a mono or stereo track as ITU-R BS.1770-4 has it, in memory that does
/// not grow with the track.
class Loudness
{
public:
    Loudness(unsigned channels, unsigned sampleRate);

    /// Takes the next samples, interleaved. Those that are not finite count as zero.
    void feed(std::span<const float> samples);

    /// In LUFS.
    /// \return nothing if the track is shorter than 0.4 s or softer than -70 LUFS throughout
    std::optional<double> integrated() const;

private:
    /// Second-order filter, transposed direct form II.
    struct Filter
    {
        std::array<double, 3> forward;
        std::array<double, 2> back;
        double first = 0.0;
        double second = 0.0;

        double pass(double sample);
    };

    /// Gating blocks whose loudness is nearly the same.
    struct Bin
    {
        double energy = 0.0;
        std::uint64_t blocks = 0;
    };

    static Filter shelf(double sampleRate);
    static Filter highPass(double sampleRate);
    void endStep();
    Bin binsFrom(std::size_t lowest) const;

    std::vector<std::array<Filter, 2>> filters; ///< per channel
    std::uint64_t stepFrames;
    std::uint64_t framesInStep = 0;
    double stepEnergy = 0.0;
    std::array<double, 4> steps{}; ///< the last ones, which make up a gating block
    std::uint64_t stepCount = 0;
    std::vector<Bin> bins;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_ANALYSIS_LOUDNESS_H
