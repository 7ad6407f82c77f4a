// SPDX-License-Identifier: MIT
#ifndef TONWERK_SPECTRAL_STEMSPECTRA_H
#define TONWERK_SPECTRAL_STEMSPECTRA_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "common/Arrays.h"

/// The spectra of all stems for the frames that one chunk completes: conceptually a packed array {stems,
/// channels, frames * N}, each N values one frame in the packing that IFFTTransformer::inverse reads.
///
/// It is a view of the model's output planes, packed row by row on demand: the packed array would be as large
/// as all outputs together and be read only once. Valid until the next call of the PreProcessor that returned
/// it.
class StemSpectra
{
public:
    /// No frames at all: the model reported failure.
    StemSpectra() = default;

    /// \param outputs one array {2 * channels, frames, bins} per stem
    /// \param firstFrame, lastFrame the frames to show: first included, last excluded
    StemSpectra(const std::vector<FixedArray<3>>& outputs, std::size_t firstFrame, std::size_t lastFrame)
        : outputs(&outputs), firstFrame(firstFrame), lastFrame(lastFrame)
    {
    }

    std::size_t frameCount() const { return lastFrame - firstFrame; }

    /// Writes the packed spectrum of one frame: N = 2 * bins values, (real, imaginary) of the bins from DC
    /// upward. DC's imaginary value lands in the slot that the inverse transform takes for Nyquist. Frames
    /// behind the last one are those that the run holds back.
    void packFrame(std::size_t stem, std::size_t channel, std::size_t frame, std::span<float> target) const;

    /// Extents of the packed array joined by "x"; empty if the model reported failure.
    std::string shapeText() const;

private:
    const std::vector<FixedArray<3>>* outputs = nullptr;
    std::size_t firstFrame = 0;
    std::size_t lastFrame = 0;
};

#endif // TONWERK_SPECTRAL_STEMSPECTRA_H
