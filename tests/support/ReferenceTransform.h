/// \file ReferenceTransform.h
/// Textbook transforms in double precision, written apart from the system, to hold it against.
#ifndef TONWERK_TESTS_SUPPORT_REFERENCETRANSFORM_H
#define TONWERK_TESTS_SUPPORT_REFERENCETRANSFORM_H

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

#include "support/FakeInference.h"

using Spectrum = std::vector<std::complex<double>>;

/// The definition: X[k] = sum of x[n] exp(-2 pi i k n / N).
Spectrum naiveFourier(const std::vector<double>& samples);

/// The periodic Blackman window.
std::vector<double> referenceWindow(std::size_t length);

/// Separates one channel of a whole signal at once: windowed frames begin at the given samples of `signal`,
/// go through the recipe without their Nyquist bins, and are overlap-added `hop` samples apart,
/// window-weighted and divided by the sum of the squared windows. Returns frame count times hop samples; the
/// first of them is frame 0's first.
std::vector<float> separateOffline(std::span<const float> signal, const std::vector<std::size_t>& frameStarts,
                                   std::size_t fftSize, std::size_t hop, const StemRecipe& recipe);

#endif // TONWERK_TESTS_SUPPORT_REFERENCETRANSFORM_H
