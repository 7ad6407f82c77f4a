// SPDX-License-Identifier: MIT
#include "pipeline/RunBlend.h"

RunBlend::RunBlend(std::size_t rows, std::size_t fftSize, std::size_t frames)
    : rows(rows), fftSize(fftSize), frames(frames), packedFrames(rows * frames * fftSize)
{
}

void RunBlend::begin()
{
    fading = kept;
    kept = false;
}

void RunBlend::fadeInto(std::size_t row, std::size_t frame, std::span<float> packed) const
{
    if (!fading || frame >= frames)
        return;
    const float* before = packedFrames.data() + offsetOf(row, frame);
    const float share = static_cast<float>(frame + 1) / static_cast<float>(frames + 1);
    for (std::size_t i = 0; i < fftSize; ++i)
        packed[i] = before[i] + share * (packed[i] - before[i]);
}

void RunBlend::keep(const StemSpectra& spectra, std::size_t stems)
{
    if (frames == 0 || spectra.frameCount() == 0)
        return;
    const std::size_t channels = rows / stems;
    for (std::size_t row = 0; row < rows; ++row)
        for (std::size_t frame = 0; frame < frames; ++frame)
            spectra.packFrame(row / channels, row % channels, spectra.frameCount() + frame,
                              {packedFrames.data() + offsetOf(row, frame), fftSize});
    kept = true;
}

std::size_t RunBlend::offsetOf(std::size_t row, std::size_t frame) const
{
    return (row * frames + frame) * fftSize;
}
