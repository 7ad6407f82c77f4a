// SPDX-License-Identifier: MIT
/// \file SampleLayout.h
/// From our layout of stereo samples to the host's, and the two stems that are sums.
#ifndef TONWERK_API_SAMPLELAYOUT_H
#define TONWERK_API_SAMPLELAYOUT_H

#include <cstddef>
#include <span>
#include <vector>

#include "common/Stems.h"

namespace tonwerk
{

/// Appends `frames` stereo samples to a host's vector: in pairs or left ones and then right ones.
void appendHostSamples(const float* left, const float* right, std::size_t frames, bool interleaved,
                       std::vector<float>& samples);

/// Makes `sum` the sum of the six stems, added up in their order, and takes it from the mixture. All have
/// `length` samples.
void sumAndSubtract(std::span<const float* const, modelStemCount> stems, std::size_t length, float* mixture,
                    float* sum);

} // namespace tonwerk

#endif // TONWERK_API_SAMPLELAYOUT_H
