// SPDX-License-Identifier: MIT
#include "common/Arrays.h"

std::string shapeText(const Array& array)
{
    std::string text;
    for (const auto extent : array.shape())
    {
        if (!text.empty())
            text += 'x';
        text += std::to_string(extent);
    }
    return text;
}
