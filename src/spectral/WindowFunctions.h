// SPDX-License-Identifier: MIT
#ifndef TONWERK_SPECTRAL_WINDOWFUNCTIONS_H
#define TONWERK_SPECTRAL_WINDOWFUNCTIONS_H

#include <cstdint>
#include <vector>

/// Window shapes of Harris (1978), "On the use of windows for harmonic analysis with the discrete Fourier
/// transform".
enum class WindowType : std::int32_t
{
    Hann = 0,     ///< symmetric, computed in double precision
    Hamming = 1,  ///< symmetric, computed in double precision
    Blackman = 2, ///< periodic, computed in single precision throughout
};

/// Builds a window of `length` samples. The symmetric shapes of length 1 are NaN (0 / 0).
/// \throws std::runtime_error "Unknown window type"
/// \throws std::length_error for a negative length
std::vector<float> makeWindow(WindowType type, std::int32_t length);

#endif // TONWERK_SPECTRAL_WINDOWFUNCTIONS_H
