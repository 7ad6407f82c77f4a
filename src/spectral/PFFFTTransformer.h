// SPDX-License-Identifier: MIT
#ifndef TONWERK_SPECTRAL_PFFFTTRANSFORMER_H
#define TONWERK_SPECTRAL_PFFFTTRANSFORMER_H

#include <cstddef>
#include <memory>
#include <span>

#include "common/Arrays.h"
#include "spectral/IFFTTransformer.h"

struct PFFFT_Setup;

/// Real FFTs on PFFFT (Pommier's FFTPACK port to SIMD).
///
/// Rows pass one at a time through two aligned scratch rows that the object owns, so one transformer serves
/// one thread at a time. Besides the array operations of the interface there is a row interface for hot
/// loops, which lets the caller fill and read the scratch rows in place.
class PFFFTTransformer : public IFFTTransformer
{
public:
    /// \param size       N. Any size is taken here, but only those that PFFFT supports can be transformed: the
    ///                   multiples of 32 up to 2^26 without other prime factors than 2, 3 and 5
    /// \param padNyquist spectra are N + 2 wide: a trailing, always empty Nyquist bin follows the N values
    PFFFTTransformer(std::size_t size, bool padNyquist);
    ~PFFFTTransformer() override;

    /// See IFFTTransformer. Of rows wider than N only the first N samples are transformed.
    Array forward(const Array& rows) override;

    /// See IFFTTransformer. The scale is 1 over the width of the result.
    Array inverse(const Array& rows) override;

    /// The scratch row that the next row transform reads: N floats to be filled by the caller.
    std::span<float> inputRow() { return {inputScratch.get(), size}; }

    /// Transforms the input row; returns N packed values, Nyquist 0, valid until the next transform.
    /// \throws std::runtime_error if PFFFT does not support the size, as do all transforms
    std::span<const float> forwardRow();

    /// Transforms the input row back; returns N samples, not yet scaled, valid until the next transform.
    std::span<const float> inverseRow();

private:
    enum class Direction
    {
        Forward,
        Inverse
    };
    struct SetupDeleter
    {
        void operator()(PFFFT_Setup* setup) const;
    };
    struct AlignedDeleter
    {
        void operator()(float* buffer) const;
    };
    using AlignedBuffer = std::unique_ptr<float, AlignedDeleter>;

    static AlignedBuffer makeScratch(std::size_t size);
    PFFFT_Setup* requireSetup() const;
    std::size_t outputWidth(std::size_t inputWidth, Direction direction) const;
    Array transform(const Array& rows, Direction direction);

    std::size_t size;
    std::unique_ptr<PFFFT_Setup, SetupDeleter> setup;
    AlignedBuffer inputScratch;
    AlignedBuffer outputScratch;
    bool padNyquist;
};

#endif // TONWERK_SPECTRAL_PFFFTTRANSFORMER_H
