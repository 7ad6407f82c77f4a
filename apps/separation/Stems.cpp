// SPDX-License-Identifier: MIT
#include "separation/Stems.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "system/Failure.h"

namespace tonwerk::app
{

StemSet stemsNamed(const std::vector<std::string>& names)
{
    StemSet stems;
    for (const std::string& name : names)
    {
        const auto found = std::find(stemNames.begin(), stemNames.end(), name);
        if (found == stemNames.end())
            throw UsageError("There is no stem \"" + name + "\", the stems are " + listOfStems() + ".");
        stems.set(static_cast<std::size_t>(found - stemNames.begin()));
    }
    if (stems.none())
        throw UsageError("--stems names no stem, the stems are " + listOfStems() + ".");
    return stems;
}

std::string listOfStems()
{
    std::string list;
    for (const std::string_view name : stemNames)
        list.append(list.empty() ? "" : ", ").append(name);
    return list;
}

} // namespace tonwerk::app
