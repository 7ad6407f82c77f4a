// SPDX-License-Identifier: MIT
#include "pipeline/ShiftArray.h"

#include <algorithm>

#include "common/Log.h"

namespace
{

constexpr const char* functionName = "shiftArray";

void shiftRow(float* row, std::size_t length, std::size_t step)
{
    float* end = std::copy(row + step, row + length, row);
    std::fill(end, row + length, 0.0F);
}

void logShift(std::size_t step, std::size_t rank, std::size_t length)
{
    TONWERK_LOG_AS(functionName, verbose) << "shiftArray called with step: " << step
                                          << ", input dimension: " << rank << ", input length: " << length;
    if (length > step)
        return;
    TONWERK_LOG_AS(functionName, verbose) << "Shift step >= input size, filling with zeros";
}

} // namespace

void shiftArray(FixedArray<1>& array, std::size_t step)
{
    const std::size_t length = array.shape(0);
    logShift(step, 1, length);
    shiftRow(array.data(), length, std::min(step, length));
}

void shiftArray(FixedArray<2>& array, std::size_t step)
{
    const std::size_t length = array.shape(1);
    logShift(step, 2, length);
    for (std::size_t row = 0; row < array.shape(0); ++row)
        shiftRow(array.data() + row * length, length, std::min(step, length));
}
