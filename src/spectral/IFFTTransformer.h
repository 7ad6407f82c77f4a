// SPDX-License-Identifier: MIT
#ifndef TONWERK_SPECTRAL_IFFTTRANSFORMER_H
#define TONWERK_SPECTRAL_IFFTTRANSFORMER_H

#include "common/Arrays.h"

/// Real FFTs of one fixed size N over the rows of an array.
///
/// Packed spectrum of a row: DC at 0, the Nyquist slot at 1, then real and imaginary part of bin k at 2k and
/// 2k + 1 for k = 1 ... N/2 - 1.
class IFFTTransformer
{
public:
    IFFTTransformer() = default;
    IFFTTransformer(const IFFTTransformer&) = delete;
    IFFTTransformer& operator=(const IFFTTransformer&) = delete;
    virtual ~IFFTTransformer() = default;

    /// {rows, N} samples to {rows, width} packed spectra, unscaled, with the Nyquist value set to 0.
    virtual Array forward(const Array& rows) = 0;

    /// {rows, width} packed spectra to {rows, N} samples, scaled by 1/N.
    virtual Array inverse(const Array& rows) = 0;
};

#endif // TONWERK_SPECTRAL_IFFTTRANSFORMER_H
