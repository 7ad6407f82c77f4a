// SPDX-License-Identifier: MIT
/// \file SampleLayout.h
/// From our layout of stereo samples to the host's, and the two stems that are sums.
#ifndef TONWERK_API_SAMPLELAYOUT_H
#define TONWERK_API_SAMPLELAYOUT_H

#include <cstddef>
#include <vector>

namespace tonwerk
{

/// The samples of `rows`, left ones and then `frames` right ones, as a host's vector: in pairs or as they
/// are.
std::vector<float> hostSamples(const float* rows, std::size_t frames, bool interleaved);

/// Returns the sum of the six stems, added up in their order, and takes it from the mixture. All have one
/// size.
std::vector<float> sumAndSubtract(const std::vector<std::vector<float>>& stems, std::vector<float>& mixture);

} // namespace tonwerk

#endif // TONWERK_API_SAMPLELAYOUT_H
