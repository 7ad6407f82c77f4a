// SPDX-License-Identifier: MIT
#include "support/ReferenceTransform.h"

#include <cmath>
#include <complex>
#include <numbers>

namespace
{

using Spectrum = std::vector<std::complex<double>>;

/// The powers of exp(2 pi i / size).
Spectrum unitRoots(std::size_t size)
{
    Spectrum roots(size);
    for (std::size_t i = 0; i < size; ++i)
        roots[i] =
            std::polar(1.0, 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size));
    return roots;
}

/// Radix 2 (Cooley & Tukey 1965) for powers of two, inverse without scaling; every `stride`-th root counts.
Spectrum inverseFourier(const Spectrum& values, const Spectrum& roots, std::size_t stride = 1)
{
    const std::size_t half = values.size() / 2;
    if (half == 0)
        return values;
    Spectrum even(half);
    Spectrum odd(half);
    for (std::size_t i = 0; i < half; ++i)
    {
        even[i] = values[2 * i];
        odd[i] = values[2 * i + 1];
    }
    even = inverseFourier(even, roots, 2 * stride);
    odd = inverseFourier(odd, roots, 2 * stride);
    Spectrum result(2 * half);
    for (std::size_t k = 0; k < half; ++k)
    {
        const auto twisted = odd[k] * roots[k * stride];
        result[k] = even[k] + twisted;
        result[k + half] = even[k] - twisted;
    }
    return result;
}

/// The bins below Nyquist of one windowed frame.
Spectrum analyse(std::span<const float> samples, const std::vector<double>& window, const Spectrum& roots)
{
    Spectrum values(window.size());
    for (std::size_t i = 0; i < window.size(); ++i)
        values[i] = static_cast<double>(samples[i]) * window[i];
    values = inverseFourier(values, roots);
    values.resize(window.size() / 2);
    for (auto& value : values) // of real samples, the forward transform is the conjugate of the inverse
        value = std::conj(value);
    return values;
}

/// The real signal with these bins and their mirror images.
std::vector<double> synthesize(const Spectrum& bins, const Spectrum& roots)
{
    const std::size_t size = 2 * bins.size();
    Spectrum values(size);
    values[0] = bins[0];
    for (std::size_t k = 1; k < bins.size(); ++k)
    {
        values[k] = bins[k];
        values[size - k] = std::conj(bins[k]);
    }
    values = inverseFourier(values, roots);
    std::vector<double> samples(size);
    for (std::size_t i = 0; i < size; ++i)
        samples[i] = values[i].real() / static_cast<double>(size);
    return samples;
}

Spectrum applyRecipe(const std::vector<Spectrum>& frames, std::size_t index, const StemRecipe& recipe)
{
    Spectrum result(frames[index].size());
    for (std::size_t k = 0; k < result.size(); ++k)
    {
        result[k] = recipe.current * frames[index][k];
        if (index > 0)
            result[k] += recipe.previous * frames[index - 1][k];
        if (index + 1 < frames.size())
            result[k] += recipe.next * frames[index + 1][k];
        if (recipe.tilted)
            result[k] *= StemRecipe::tilt(k, result.size());
    }
    return result;
}

} // namespace

std::vector<double> referenceWindow(std::size_t length)
{
    std::vector<double> window(length);
    for (std::size_t i = 0; i < length; ++i)
    {
        const double phase = 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(length);
        window[i] = 0.42 - 0.5 * std::cos(phase) + 0.08 * std::cos(2.0 * phase);
    }
    return window;
}

std::vector<float> packedSpectrum(std::span<const float> samples, const std::vector<double>& window)
{
    const Spectrum bins = analyse(samples, window, unitRoots(samples.size()));
    std::vector<float> packed(samples.size());
    for (std::size_t k = 0; k < bins.size(); ++k)
    {
        packed[2 * k] = static_cast<float>(bins[k].real());
        packed[2 * k + 1] = k == 0 ? 0.0F : static_cast<float>(bins[k].imag());
    }
    return packed;
}

std::vector<float> separateOffline(std::span<const float> signal, const std::vector<std::size_t>& frameStarts,
                                   std::size_t fftSize, std::size_t hop, const StemRecipe& recipe)
{
    const std::vector<double> window = referenceWindow(fftSize);
    const Spectrum roots = unitRoots(fftSize);
    std::vector<Spectrum> frames;
    for (const std::size_t start : frameStarts)
        frames.push_back(analyse(signal.subspan(start, fftSize), window, roots));

    std::vector<double> sums(frames.size() * hop + fftSize);
    std::vector<double> weights(sums.size());
    for (std::size_t frame = 0; frame < frames.size(); ++frame)
    {
        const std::vector<double> samples = synthesize(applyRecipe(frames, frame, recipe), roots);
        for (std::size_t i = 0; i < fftSize; ++i)
        {
            sums[frame * hop + i] += window[i] * samples[i];
            weights[frame * hop + i] += window[i] * window[i];
        }
    }
    std::vector<float> result(frames.size() * hop);
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = static_cast<float>(sums[i] / weights[i]);
    return result;
}
