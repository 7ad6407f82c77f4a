// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_SPECTROGRAM_H
#define TONWERK_APPS_REPORT_SPECTROGRAM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "report/Image.h"
#include "spectral/PFFFTTransformer.h"

namespace tonwerk::app
{

/// Sums up the power of a track of unknown length over time and frequency, in constant memory: when all
/// columns are full, pairs of them merge.
class Spectrogram
{
public:
    /// Rows of frequency, evenly spaced on a logarithmic scale.
    static constexpr std::size_t rowCount = 112;

    /// Lower edge of the lowest row in Hz.
    static constexpr double lowestFrequency = 50.0;

    /// Upper edge of the highest row in Hz.
    static double highestFrequency(unsigned sampleRate);

    explicit Spectrogram(unsigned sampleRate);

    /// Takes the next interleaved stereo samples. Those that are not finite count as zero.
    void feed(std::span<const float> stereo);

    /// Ends the track; call it once.
    void finish();

    /// Largest power of a row; a full-scale sine has 1 per channel.
    double peakPower() const;

    /// Draws the whole track, with one row of pixels per row of frequency.
    /// \param referencePower power that gets the brightest colour
    Image draw(std::size_t width, double referencePower) const;

private:
    using Rows = std::array<float, rowCount>;
    struct Column
    {
        Rows powers{}; ///< sums
        std::uint64_t spectra = 0;
    };
    struct BinRange
    {
        std::size_t first;
        std::size_t last;
        double fraction; ///< of the way from first to last, for a row narrower than a bin
    };

    void addSpectrum();
    void addChannel(std::size_t channel, Rows& powers);
    float powerOf(const BinRange& bins) const;
    void mergePairs();

    PFFFTTransformer transformer;
    std::vector<float> window;
    std::vector<BinRange> bins;
    std::vector<float> binPowers;
    std::vector<float> pending; ///< interleaved stereo: the samples under the window
    std::vector<Column> columns;
    std::uint64_t spectraPerColumn = 1;
    std::uint64_t frames = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_SPECTROGRAM_H
