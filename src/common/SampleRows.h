// SPDX-License-Identifier: MIT
#ifndef TONWERK_COMMON_SAMPLEROWS_H
#define TONWERK_COMMON_SAMPLEROWS_H

#include <cstddef>

/// Rows of samples that somebody else owns, all of one length and equally far apart.
struct SampleRows
{
    const float* first = nullptr;
    std::size_t rowCount = 0;
    std::size_t length = 0; ///< samples per row
    std::size_t stride = 0; ///< from the beginning of a row to that of the next

    const float* row(std::size_t index) const { return first + index * stride; }
};

#endif // TONWERK_COMMON_SAMPLEROWS_H
