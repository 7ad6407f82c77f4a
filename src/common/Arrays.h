// SPDX-License-Identifier: MIT
/// \file Arrays.h
/// The arrays that the modules hand to each other: dense, row-major, single precision, time on the last axis.
#ifndef TONWERK_COMMON_ARRAYS_H
#define TONWERK_COMMON_ARRAYS_H

#include <cstddef>
#include <string>

#include <xtensor/xarray.hpp>
#include <xtensor/xtensor.hpp>

/// An array whose shape varies from call to call. Default-constructed it has no dimensions, which stands for
/// "no result".
using Array = xt::xarray<float>;

/// State of a fixed rank.
template <std::size_t Rank>
using FixedArray = xt::xtensor<float, Rank>;

/// Extent of the time axis; 0 for an array without dimensions.
inline std::size_t lastExtent(const Array& array)
{
    return array.dimension() == 0 ? 0 : array.shape().back();
}

/// Extents joined by "x", as log lines show shapes.
std::string shapeText(const Array& array);

#endif // TONWERK_COMMON_ARRAYS_H
