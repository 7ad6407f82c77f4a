// SPDX-License-Identifier: MIT
#include "spectral/PFFFTTransformer.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>

#include <pffft.h>

namespace
{

constexpr std::size_t nyquistSlot = 1;
constexpr std::size_t trailingBinWidth = 2;

/// Null if PFFFT does not take the size. That it takes only multiples of 32 (on vectors of 4), it does not
/// check itself in a release build.
PFFFT_Setup* makeSetup(std::size_t size)
{
    constexpr std::size_t largest = std::size_t{1} << 26U;
    const auto lanes = static_cast<std::size_t>(pffft_simd_size());
    if (size == 0 || size > largest || size % (2 * lanes * lanes) != 0)
        return nullptr;
    return pffft_new_setup(static_cast<int>(size), PFFFT_REAL);
}

} // namespace

void PFFFTTransformer::SetupDeleter::operator()(PFFFT_Setup* handle) const
{
    pffft_destroy_setup(handle);
}

void PFFFTTransformer::AlignedDeleter::operator()(float* buffer) const
{
    pffft_aligned_free(buffer);
}

PFFFTTransformer::AlignedBuffer PFFFTTransformer::makeScratch(std::size_t size)
{
    AlignedBuffer buffer(static_cast<float*>(pffft_aligned_malloc(size * sizeof(float))));
    if (!buffer)
        throw std::bad_alloc();
    std::fill_n(buffer.get(), size, 0.0F);
    return buffer;
}

PFFFTTransformer::PFFFTTransformer(std::size_t size, bool padNyquist)
    : size(size), setup(makeSetup(size)), inputScratch(makeScratch(size)), outputScratch(makeScratch(size)),
      padNyquist(padNyquist)
{
}

PFFFTTransformer::~PFFFTTransformer() = default;

PFFFT_Setup* PFFFTTransformer::requireSetup() const
{
    if (!setup)
        throw std::runtime_error("The FFT does not support the size " + std::to_string(size));
    return setup.get();
}

std::span<const float> PFFFTTransformer::forwardRow()
{
    pffft_transform_ordered(requireSetup(), inputScratch.get(), outputScratch.get(), nullptr, PFFFT_FORWARD);
    // The model sees no Nyquist bin: dropping it here keeps the slot from being read as DC's imaginary part.
    outputScratch.get()[nyquistSlot] = 0.0F;
    return {outputScratch.get(), size};
}

std::span<const float> PFFFTTransformer::inverseRow()
{
    pffft_transform_ordered(requireSetup(), inputScratch.get(), outputScratch.get(), nullptr, PFFFT_BACKWARD);
    return {outputScratch.get(), size};
}

Array PFFFTTransformer::forward(const Array& rows)
{
    return transform(rows, Direction::Forward);
}

Array PFFFTTransformer::inverse(const Array& rows)
{
    Array result = transform(rows, Direction::Inverse);
    const auto scale = static_cast<float>(lastExtent(result));
    for (float& value : result)
        value /= scale;
    return result;
}

std::size_t PFFFTTransformer::outputWidth(std::size_t inputWidth, Direction direction) const
{
    if (!padNyquist)
        return inputWidth;
    if (direction == Direction::Forward)
        return inputWidth + trailingBinWidth;
    return inputWidth - std::min(inputWidth, trailingBinWidth);
}

Array PFFFTTransformer::transform(const Array& rows, Direction direction)
{
    const std::size_t rowCount = rows.shape(0);
    const std::size_t inputWidth = rows.shape(1);
    const std::size_t width = outputWidth(inputWidth, direction);
    Array result = Array::from_shape({rowCount, width});
    for (std::size_t row = 0; row < rowCount; ++row)
    {
        const float* source = rows.data() + row * inputWidth;
        std::copy_n(source, std::min(inputWidth, size), inputScratch.get());
        const auto values = direction == Direction::Forward ? forwardRow() : inverseRow();
        float* target = result.data() + row * width;
        float* end = std::copy_n(values.begin(), std::min(width, size), target);
        std::fill(end, target + width, 0.0F);
    }
    return result;
}
