// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_WAVEFORM_H
#define TONWERK_APPS_REPORT_WAVEFORM_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "report/Image.h"

namespace tonwerk::app
{

/// Records the outline of a track of unknown length in constant memory: when all columns are full, pairs of
/// them merge.
class Waveform
{
public:
    Waveform();

    /// Takes the next interleaved stereo samples. Those that are not finite count as zero.
    void feed(std::span<const float> stereo);

    /// Largest absolute value so far, 1 being full scale.
    float peak() const;

    /// Root of the mean square of all samples so far.
    double rms() const;

    /// Draws the whole track: the extremes of both channels pale, the RMS value around zero in full colour.
    /// \param fullScale value that reaches the upper and lower edge, more than 0
    Image draw(std::size_t width, std::size_t height, float fullScale, Color color) const;

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
    Column between(std::size_t pixel, std::size_t width) const;

    std::vector<Column> columns;
    std::uint64_t framesPerColumn;
    std::uint64_t frames = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_WAVEFORM_H
