// SPDX-License-Identifier: MIT
#include "spectral/StemSpectra.h"

void StemSpectra::packFrame(std::size_t stem, std::size_t channel, std::size_t frame,
                            std::span<float> target) const
{
    const FixedArray<3>& planes = (*outputs)[stem];
    const std::size_t bins = planes.shape(2);
    const std::size_t planeSize = planes.shape(1) * bins;
    const float* real = planes.data() + 2 * channel * planeSize + (firstFrame + frame) * bins;
    const float* imaginary = real + planeSize;
    float* packed = target.data();
    for (std::size_t bin = 0; bin < bins; ++bin)
    {
        packed[2 * bin] = real[bin];
        packed[2 * bin + 1] = imaginary[bin];
    }
}

std::string StemSpectra::shapeText() const
{
    if (outputs == nullptr)
        return {};
    const FixedArray<3>& planes = outputs->front();
    return std::to_string(outputs->size()) + "x" + std::to_string(planes.shape(0) / 2) + "x" +
           std::to_string(frameCount() * 2 * planes.shape(2));
}
