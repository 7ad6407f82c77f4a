// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_RUNBLEND_H
#define TONWERK_PIPELINE_RUNBLEND_H

#include <cstddef>
#include <span>
#include <vector>

#include "spectral/StemSpectra.h"

/// What a run of the model said of frames that the next run decides with it: they are faded from one to the
/// other in equal steps, spectrum by spectrum, so that a network that changes its mind is not heard to.
///
/// Without frames to fade it holds no memory and changes nothing.
class RunBlend
{
public:
    /// \param rows     channels of all stems
    /// \param fftSize  values of a packed spectrum
    /// \param frames   frames to fade
    RunBlend(std::size_t rows, std::size_t fftSize, std::size_t frames);

    /// What was kept belongs to another stream.
    void forget() { kept = fading = false; }

    /// A run begins: it fades out what the last one kept. If it fails, nothing is faded into the next one,
    /// whose frames are not those that were kept.
    void begin();

    /// Fades frame `frame` of the run at hand, in one row, in place. Frames behind the fade stay as they are.
    void fadeInto(std::size_t row, std::size_t frame, std::span<float> packed) const;

    /// Keeps the first frames that the run at hand holds back, for the next one.
    void keep(const StemSpectra& spectra, std::size_t stems);

private:
    std::size_t offsetOf(std::size_t row, std::size_t frame) const;

    std::size_t rows;
    std::size_t fftSize;
    std::size_t frames;
    std::vector<float> packedFrames; ///< row by row, frame by frame
    bool kept = false;
    bool fading = false;
};

#endif // TONWERK_PIPELINE_RUNBLEND_H
