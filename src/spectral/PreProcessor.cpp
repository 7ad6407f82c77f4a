// SPDX-License-Identifier: MIT
#include "spectral/PreProcessor.h"

#include <algorithm>
#include <array>
#include <bit>
#include <ostream>
#include <span>
#include <utility>

#include <xtensor/xadapt.hpp>

#include "common/Log.h"

namespace
{

/// True if no value is NaN or infinite. Such values have all exponent bits set, so that adding one to the
/// exponent carries into the sign bit; integer arithmetic lets the compiler vectorise the test.
bool allFinite(std::span<const float> values)
{
    std::uint32_t carries = 0;
    for (const float value : values)
        carries |= (std::bit_cast<std::uint32_t>(value) & 0x7FFFFFFFU) + 0x00800000U;
    return (carries & 0x80000000U) == 0;
}

} // namespace

PreProcessor::PreProcessor(std::size_t channelCount, std::size_t fftSize, std::size_t hopSize,
                           const std::vector<float>& window, std::shared_ptr<IInference> inference,
                           std::size_t frameCount, bool keepEdgeFrames, std::size_t outputCount,
                           std::size_t heldFrames)
    : channelCount(channelCount), fftSize(fftSize), hopSize(hopSize), outputCount(outputCount),
      window(xt::adapt(window, {window.size()})), inference(std::move(inference)), fft(fftSize, false),
      frameCount(frameCount), keepEdgeFrames(keepEdgeFrames), heldFrames(heldFrames), edgeFrames(0),
      spectrogram(xt::zeros<float>({2 * channelCount, frameCount, fftSize / 2})), firstCall(true),
      modelOutputs(outputCount, spectrogram)
{
}

std::size_t PreProcessor::maxInputLength() const
{
    return (frameCount - edgeFrames - 1) * hopSize + fftSize;
}

void PreProcessor::reset()
{
    spectrogram.fill(0.0F);
    edgeFrames = 0;
    firstCall = true;
}

void PreProcessor::prepare()
{
    if (!nextOutputs.empty())
        return;
    nextOutputs.reserve(outputCount);
    for (auto& output : modelOutputs)
        nextOutputs.push_back(output.data());
}

StemSpectra PreProcessor::process(const SampleRows& input, bool eof)
{
    prepare();
    TONWERK_LOG(debug) << "Process signal: " << input.length;
    const std::size_t newFrames =
        input.length < fftSize ? 0 : std::min(frameCount, (input.length - fftSize) / hopSize + 1);
    shiftSpectrogram(newFrames);
    transformFrames(input);
    if (!runModel())
    {
        TONWERK_LOG(error) << "Inference failed" << std::endl;
        return {};
    }
    const StemSpectra spectra = completedFrames(newFrames, eof);
    TONWERK_LOG(debug) << "Process signal finished";
    return spectra;
}

// Vacates the last `newFrames` slots; transformFrames fills every one of them.
void PreProcessor::shiftSpectrogram(std::size_t newFrames)
{
    const std::size_t bins = spectrogram.shape(2);
    const std::size_t planeSize = frameCount * bins;
    for (std::size_t plane = 0; plane < spectrogram.shape(0); ++plane)
    {
        float* begin = spectrogram.data() + plane * planeSize;
        std::copy(begin + newFrames * bins, begin + planeSize, begin);
    }
}

// Backwards, so that the newest frame ends exactly at the end of the input.
void PreProcessor::transformFrames(const SampleRows& input)
{
    std::size_t slot = frameCount;
    for (std::size_t end = input.length; end >= fftSize && slot > 0; end -= hopSize)
    {
        --slot;
        for (std::size_t channel = 0; channel < channelCount; ++channel)
            transformFrame(input.row(channel) + end - fftSize, channel, slot);
        if (end < hopSize)
            break;
    }
}

void PreProcessor::transformFrame(const float* samples, std::size_t channel, std::size_t slot)
{
    float* windowed = fft.inputRow().data();
    for (std::size_t i = 0; i < fftSize; ++i)
        windowed[i] = samples[i] * window.data()[i];
    const auto spectrum = fft.forwardRow();
    const std::size_t bins = spectrogram.shape(2);
    float* real = spectrogram.data() + (2 * channel * frameCount + slot) * bins;
    float* imaginary = real + frameCount * bins;
    if (!allFinite(spectrum))
    {
        // Silence, so that the model cannot spread the fault over its whole segment.
        std::fill_n(real, bins, 0.0F);
        std::fill_n(imaginary, bins, 0.0F);
        return;
    }
    for (std::size_t bin = 0; bin < bins; ++bin)
    {
        real[bin] = spectrum[2 * bin];
        imaginary[bin] = spectrum[2 * bin + 1];
    }
}

bool PreProcessor::runModel()
{
    const std::array<std::int64_t, 4> shape{1, static_cast<std::int64_t>(spectrogram.shape(0)),
                                            static_cast<std::int64_t>(spectrogram.shape(1)),
                                            static_cast<std::int64_t>(spectrogram.shape(2))};
    return inference->run(spectrogram.data(), std::exchange(nextOutputs, {}), shape);
}

// The newest frames are held back until more input has come, and returned by the next call, when the model
// has seen what is to their right.
StemSpectra PreProcessor::completedFrames(std::size_t newFrames, bool eof)
{
    std::size_t first = frameCount - newFrames;
    std::size_t last = frameCount;
    if (keepEdgeFrames)
    {
        edgeFrames = 2;
        if (!eof)
            last -= heldFrames;
        if (firstCall)
            firstCall = false;
        else
            first -= std::min(first, heldFrames);
    }
    return {modelOutputs, std::min(first, last), last};
}
