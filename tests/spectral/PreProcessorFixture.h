/// \file PreProcessorFixture.h
/// A pre-processor small enough to check frame by frame.
#ifndef TONWERK_TESTS_SPECTRAL_PREPROCESSORFIXTURE_H
#define TONWERK_TESTS_SPECTRAL_PREPROCESSORFIXTURE_H

#include <cstddef>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "spectral/PreProcessor.h"
#include "spectral/WindowFunctions.h"
#include "support/FakeInference.h"
#include "support/ReferenceTransform.h"
#include "support/Signals.h"

/// Two channels, frames of 64 samples 16 apart, segments of 8 frames and 3 outputs: the input itself,
/// nothing, and the input times 2.
class SmallPreProcessor : public ::testing::Test
{
protected:
    static constexpr std::size_t channels = 2;
    static constexpr std::size_t fftSize = 64;
    static constexpr std::size_t hop = 16;
    static constexpr std::size_t frames = 8;
    static constexpr std::size_t outputs = 3;
    static constexpr std::size_t bins = fftSize / 2;
    /// Rounding of a 64-point transform of windowed samples up to 0.5, whose values reach 13.
    static constexpr double tolerance = 1e-5;

    std::unique_ptr<PreProcessor> make(bool keepEdgeFrames) const
    {
        return std::make_unique<PreProcessor>(channels, fftSize, hop,
                                              makeWindow(WindowType::Blackman, fftSize), model, frames,
                                              keepEdgeFrames, outputs);
    }

    /// Runs one chunk and packs the spectra that come back as {outputs, channels, frames * fftSize}; an array
    /// without dimensions if the model reported failure.
    static Array process(PreProcessor& preProcessor, const Array& input, bool eof, std::size_t skip = 0)
    {
        const StemSpectra spectra = preProcessor.process(input, eof, skip);
        if (!spectra)
            return {};
        Array packed = Array::from_shape({outputs, channels, spectra.frameCount() * fftSize});
        EXPECT_EQ(spectra.shapeText(), shapeText(packed));
        for (std::size_t output = 0; output < outputs; ++output)
            for (std::size_t channel = 0; channel < channels; ++channel)
                for (std::size_t frame = 0; frame < spectra.frameCount(); ++frame)
                    spectra.packFrame(output, channel, frame,
                                      {&packed(output, channel, frame * fftSize), fftSize});
        return packed;
    }

    /// Length of a block that holds this many frames.
    static std::size_t lengthOf(std::size_t frameCount) { return fftSize + (frameCount - 1) * hop; }

    /// The packed spectrum of the frame of `input` that begins at `start`.
    static std::vector<float> spectrumAt(const Array& input, std::size_t channel, std::size_t start)
    {
        const auto window = referenceWindow(fftSize);
        std::vector<double> samples(fftSize);
        for (std::size_t i = 0; i < fftSize; ++i)
            samples[i] = window[i] * static_cast<double>(input(channel, start + i));
        const Spectrum spectrum = naiveFourier(samples);
        std::vector<float> packed(fftSize);
        packed[0] = static_cast<float>(spectrum[0].real());
        for (std::size_t k = 1; k < bins; ++k)
        {
            packed[2 * k] = static_cast<float>(spectrum[k].real());
            packed[2 * k + 1] = static_cast<float>(spectrum[k].imag());
        }
        return packed;
    }

    /// What the model saw last in one slot of its segment, packed.
    std::vector<float> seenInSlot(std::size_t channel, std::size_t slot) const
    {
        std::vector<float> packed(fftSize);
        for (std::size_t k = 0; k < bins; ++k)
        {
            packed[2 * k] = model->lastInput[(2 * channel * frames + slot) * bins + k];
            packed[2 * k + 1] = model->lastInput[((2 * channel + 1) * frames + slot) * bins + k];
        }
        return packed;
    }

    /// One frame of a result of process.
    static std::span<const float> returnedFrame(const Array& result, std::size_t output, std::size_t channel,
                                                std::size_t index)
    {
        return row(result, output, channel).subspan(index * fftSize, fftSize);
    }

    static inline const std::vector<float> silence = std::vector<float>(fftSize);

    std::shared_ptr<FakeInference> model = std::make_shared<FakeInference>(gainModel({1.0F, 0.0F, 2.0F}));
};

#endif // TONWERK_TESTS_SPECTRAL_PREPROCESSORFIXTURE_H
