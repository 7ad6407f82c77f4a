// SPDX-License-Identifier: MIT
#include "spectral/WindowFunctions.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace
{

constexpr double twoPi = 6.283185307179586;

double hann(double cosine)
{
    return (1.0 - cosine) * 0.5;
}

double hamming(double cosine)
{
    return 0.54 - 0.46 * cosine;
}

template <typename Shape>
void fillSymmetric(std::vector<float>& window, std::int32_t length, Shape shape)
{
    for (std::int32_t n = 0; n < length; ++n)
        window[static_cast<std::size_t>(n)] = static_cast<float>(shape(std::cos(twoPi * n / (length - 1))));
}

// Models are trained on spectra of this very window: the order of evaluation is fixed and no step is widened
// to double precision.
void fillBlackman(std::vector<float>& window)
{
    const auto step = static_cast<float>(twoPi / static_cast<double>(static_cast<float>(window.size())));
    const float doubleStep = step + step;
    for (std::size_t n = 0; n < window.size(); ++n)
    {
        const auto position = static_cast<float>(n);
        window[n] = (0.42F - 0.5F * std::cos(position * step)) + 0.08F * std::cos(position * doubleStep);
    }
}

} // namespace

std::vector<float> makeWindow(WindowType type, std::int32_t length)
{
    if (type != WindowType::Hann && type != WindowType::Hamming && type != WindowType::Blackman)
        throw std::runtime_error("Unknown window type");
    std::vector<float> window(static_cast<std::size_t>(length));
    if (type == WindowType::Hann)
        fillSymmetric(window, length, hann);
    else if (type == WindowType::Hamming)
        fillSymmetric(window, length, hamming);
    else
        fillBlackman(window);
    return window;
}
