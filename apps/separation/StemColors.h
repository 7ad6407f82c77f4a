// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_STEMCOLORS_H
#define TONWERK_APPS_SEPARATION_STEMCOLORS_H

#include <array>
#include <cstdint>

#include "separation/Stems.h"

namespace tonwerk::app
{

/// A colour with opacity, 255 being opaque.
struct Color
{
    std::uint8_t red;
    std::uint8_t green;
    std::uint8_t blue;
    std::uint8_t alpha;
};

/// The song's colour on pages and in sessions, readable on white and on black as those of the stems.
inline constexpr Color songColor{125, 133, 151, 255};

/// The stems' colours, in the order of stemNames.
inline constexpr std::array<Color, stemNames.size()> stemColors{{{226, 74, 122, 255},
                                                                 {230, 118, 36, 255},
                                                                 {124, 108, 240, 255},
                                                                 {24, 158, 106, 255},
                                                                 {208, 58, 58, 255},
                                                                 {28, 140, 214, 255},
                                                                 {139, 128, 118, 255},
                                                                 {20, 150, 160, 255}}};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_STEMCOLORS_H
