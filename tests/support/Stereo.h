// SPDX-License-Identifier: MIT
#ifndef TONWERK_TESTS_SUPPORT_STEREO_H
#define TONWERK_TESTS_SUPPORT_STEREO_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/Noise.h"

/// Left and right, equally long.
struct Stereo
{
    std::vector<float> left;
    std::vector<float> right;

    std::size_t size() const { return left.size(); }
};

/// Smooth noise, different in both channels.
Stereo noise(std::size_t length, std::uint32_t seed = randomSeed());

Stereo silence(std::size_t length);

Stereo slice(const Stereo& signal, std::size_t first, std::size_t count);

/// As `process` takes it.
std::vector<float> packed(const Stereo& signal, bool interleaved);

/// The inverse.
Stereo unpacked(const std::vector<float>& samples, bool interleaved);

/// The largest difference of two signals between the samples `first` (included) and `last` (excluded);
/// infinity if they are not equally long or a value is not finite.
float largestDifference(const Stereo& one, const Stereo& other, std::size_t first = 0,
                        std::size_t last = SIZE_MAX);

Stereo scaled(Stereo signal, float gain);

#endif // TONWERK_TESTS_SUPPORT_STEREO_H
