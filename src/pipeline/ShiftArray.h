// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_SHIFTARRAY_H
#define TONWERK_PIPELINE_SHIFTARRAY_H

#include <cstddef>

#include "common/Arrays.h"

/// Shifts the samples left by `step` in place and fills the vacated end with zeros.
void shiftArray(FixedArray<1>& array, std::size_t step);

/// The same for every row of {rows, length}.
void shiftArray(FixedArray<2>& array, std::size_t step);

#endif // TONWERK_PIPELINE_SHIFTARRAY_H
