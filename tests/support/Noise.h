// SPDX-License-Identifier: MIT
/// \file Noise.h
/// Random signals that a seed repeats.
#ifndef TONWERK_TESTS_SUPPORT_NOISE_H
#define TONWERK_TESTS_SUPPORT_NOISE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

/// Another seed on every run of the test program, printed, or the one given with --gtest_random_seed.
inline std::uint32_t randomSeed()
{
    static const std::uint32_t seed = []
    {
        const auto wanted = static_cast<std::uint32_t>(GTEST_FLAG_GET(random_seed));
        const std::uint32_t chosen = wanted != 0 ? wanted : std::random_device{}() % 99999 + 1;
        std::cerr << "This run is repeated by --gtest_random_seed=" << chosen << '\n';
        return chosen;
    }();
    return seed;
}

/// Noise of at most 0.5 without content near half the sample rate: the transform drops the Nyquist bin of
/// each frame, so that only such signals come back unchanged.
inline std::vector<float> smoothNoise(std::size_t length, std::mt19937& generator)
{
    // (1 + 1/z)^4 / 16 has a fourfold zero at half the sample rate and a gain of at most 1.
    constexpr std::array<float, 5> weights{1.0F / 16, 4.0F / 16, 6.0F / 16, 4.0F / 16, 1.0F / 16};
    std::uniform_real_distribution<float> uniform(-0.5F, 0.5F);
    std::vector<float> white(length + 4);
    std::generate(white.begin(), white.end(), [&] { return uniform(generator); });
    std::vector<float> smooth(length);
    for (std::size_t i = 0; i < length; ++i)
        smooth[i] = std::inner_product(weights.begin(), weights.end(), &white[i], 0.0F);
    return smooth;
}

#endif // TONWERK_TESTS_SUPPORT_NOISE_H
