// SPDX-License-Identifier: MIT
/// \file Signals.h
/// Test signals, and comparing what comes back.
#ifndef TONWERK_TESTS_SUPPORT_SIGNALS_H
#define TONWERK_TESTS_SUPPORT_SIGNALS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include "common/Arrays.h"
#include "common/SampleRows.h"
#include "pipeline/BufferAggregator.h"
#include "support/Noise.h"

/// Smooth noise {channels, length}, different in every channel.
Array smoothNoise(std::size_t channels, std::size_t length, std::uint32_t seed);

/// The samples [first, first + count) of every row of a rank-2 array.
Array timeSlice(const Array& samples, std::size_t first, std::size_t count);

/// One row of a rank-2 array.
std::span<const float> row(const Array& samples, std::size_t channel);

/// One row of a rank-3 array.
std::span<const float> row(const Array& stems, std::size_t stem, std::size_t channel);

/// A rank-2 array as a block of a host's memory, or as rows of it.
SampleBlock blockOf(const Array& samples);
SampleRows rowsOf(const Array& samples);

/// The extents of an array, for comparisons.
std::vector<std::size_t> shapeOf(const Array& array);

/// Same length, and no two values further apart than the tolerance (0: equal). NaN is never near.
::testing::AssertionResult samplesNear(std::span<const float> actual, std::span<const float> expected,
                                       double tolerance);

#endif // TONWERK_TESTS_SUPPORT_SIGNALS_H
