// SPDX-License-Identifier: MIT
#include "pipeline/OverlapAddSynthesizer.h"

#include <algorithm>

#include <xtensor/xadapt.hpp>
#include <xtensor/xview.hpp>

#include "pipeline/ShiftArray.h"

OverlapAddSynthesizer::OverlapAddSynthesizer(std::size_t channels, std::size_t fftSize, std::size_t hop,
                                             const std::vector<float>& window)
    : PFFFTTransformer(fftSize, false), fftSize(fftSize), hop(hop),
      scaledWindow(xt::adapt(window, {window.size()})), windowSquared(scaledWindow * scaledWindow),
      accumulator(xt::zeros<float>({channels, fftSize})), windowSum(xt::zeros<float>({fftSize})),
      silentHops(0)
{
    // Exact: N is a power of two in this system, so scaling the window rounds nothing away.
    scaledWindow /= static_cast<float>(fftSize);
}

Array OverlapAddSynthesizer::process(const Array& frame)
{
    return frame.dimension() == 3 ? processFrames(frame) : processFrame(frame);
}

Array OverlapAddSynthesizer::processFrame(const Array& frame)
{
    const std::size_t channels = accumulator.shape(0);
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        std::copy_n(frame.data() + channel * fftSize, fftSize, inputRow().data());
        addRow(channel);
    }
    const std::size_t count = std::min(hop, fftSize);
    Array completed = Array::from_shape({channels, count});
    completeHop(completed.data(), count);
    return completed;
}

void OverlapAddSynthesizer::addRow(std::size_t channel)
{
    silentHops = 0;
    const float* samples = inverseRow().data();
    const float* shape = scaledWindow.data();
    float* sums = accumulator.data() + channel * fftSize;
    for (std::size_t i = 0; i < fftSize; ++i)
        sums[i] = samples[i] * shape[i] + sums[i];
}

void OverlapAddSynthesizer::completeHop(float* first, std::size_t stride)
{
    for (std::size_t i = 0; i < fftSize; ++i)
        windowSum.data()[i] += windowSquared.data()[i];
    normalise(std::min(hop, fftSize), first, stride);
    shiftArray(accumulator, hop);
    shiftArray(windowSum, hop);
}

// The sums of a frame's length of silent hops are all zero, and those of the window do not change any more:
// the same values have been added to each of them in the same order.
void OverlapAddSynthesizer::completeSilentHop(float* first, std::size_t stride)
{
    if (silentHops * hop < fftSize)
    {
        ++silentHops;
        completeHop(first, stride);
        return;
    }
    for (std::size_t channel = 0; channel < accumulator.shape(0); ++channel)
        std::fill_n(first + channel * stride, std::min(hop, fftSize), 0.0F);
}

Array OverlapAddSynthesizer::processFrames(const Array& frames)
{
    // Two rows whatever the channel count: batches are a stereo-only convenience.
    constexpr std::size_t batchRows = 2;
    const std::size_t count = frames.shape(2);
    Array result = xt::zeros<float>({batchRows, count * hop});
    std::size_t written = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const Array piece = processFrame(xt::view(frames, xt::all(), xt::all(), i));
        const std::size_t width = lastExtent(piece);
        xt::view(result, xt::all(), xt::range(written, written + width)) = piece;
        written += width;
    }
    if (written < count * hop)
        return xt::view(result, xt::all(), xt::range(std::size_t{0}, written));
    return result;
}

void OverlapAddSynthesizer::reset()
{
    accumulator.fill(0.0F);
    windowSum.fill(0.0F);
    silentHops = 0;
}

Array OverlapAddSynthesizer::tail() const
{
    const std::size_t count = fftSize - std::min(hop, fftSize);
    Array incomplete = Array::from_shape({accumulator.shape(0), count});
    normalise(count, incomplete.data(), count);
    return incomplete;
}

void OverlapAddSynthesizer::normalise(std::size_t count, float* first, std::size_t stride) const
{
    for (std::size_t channel = 0; channel < accumulator.shape(0); ++channel)
    {
        const float* sums = accumulator.data() + channel * fftSize;
        float* target = first + channel * stride;
        for (std::size_t i = 0; i < count; ++i)
            target[i] = sums[i] / windowSum.data()[i];
    }
}
