// SPDX-License-Identifier: MIT
/// \file ReferenceTransform.h
/// Textbook transforms in double precision, written apart from the system, to hold it against.
#ifndef TONWERK_TESTS_SUPPORT_REFERENCETRANSFORM_H
#define TONWERK_TESTS_SUPPORT_REFERENCETRANSFORM_H

#include <cstddef>
#include <span>
#include <vector>

#include "support/FakeInference.h"

/// The periodic Blackman window.
std::vector<double> referenceWindow(std::size_t length);

/// The spectrum of samples times window, packed as IFFTTransformer packs it, with an empty Nyquist slot.
std::vector<float> packedSpectrum(std::span<const float> samples, const std::vector<double>& window);

/// Separates one channel of a whole signal at once: windowed frames begin at the given samples of `signal`,
/// go through the recipe without their Nyquist bins, and are overlap-added `hop` samples apart,
/// window-weighted and divided by the sum of the squared windows. Returns frame count times hop samples; the
/// first of them is frame 0's first.
std::vector<float> separateOffline(std::span<const float> signal, const std::vector<std::size_t>& frameStarts,
                                   std::size_t fftSize, std::size_t hop, const StemRecipe& recipe);

#endif // TONWERK_TESTS_SUPPORT_REFERENCETRANSFORM_H
