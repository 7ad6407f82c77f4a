// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_WAVEFORM_H
#define TONWERK_APPS_REPORT_WAVEFORM_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Records the outline of a track of unknown length in constant memory: when all columns are full, pairs of
/// them merge.
class Waveform
{
public:
    /// Takes the next interleaved stereo samples. Those that are not finite count as zero.
    void feed(std::span<const float> stereo);

    /// Largest absolute value so far, 1 being full scale.
    float peak() const;

    /// Root of the mean square of all samples so far.
    double rms() const;

    /// The track as columns of three bytes each: the lowest and the highest value of both channels and the
    /// RMS value, as signed numbers of which 127 is the peak. Rounded away from zero, so that nothing is
    /// lost.
    std::string columnBytes() const;

    /// Samples per channel in a column; the last one may be shorter.
    std::uint64_t columnFrames() const { return framesPerColumn; }

private:
    struct Column
    {
        float lowest = 0.0F;
        float highest = 0.0F;
        double squares = 0.0;
        std::uint64_t samples = 0;

        void merge(const Column& other);
        double rms() const;
    };

    void mergePairs();

    std::vector<Column> columns;
    std::uint64_t framesPerColumn = 256;
    std::uint64_t frames = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_WAVEFORM_H
