// SPDX-License-Identifier: MIT
#include "separation/Quality.h"

#include <cstdint>

#include <tonwerk/tonwerk_c.h>

#include "system/Failure.h"

namespace tonwerk::app
{

Quality qualityNamed(const std::string& name)
{
    tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
    if (tonwerk_preset(name.c_str(), &options) != TONWERK_OK)
        throw UsageError("There is no quality \"" + name + "\", the qualities are " + listOfQualities() +
                         ".");
    return {name, options.step, options.lookahead, options.blend};
}

std::string listOfQualities()
{
    std::string list;
    for (std::uint32_t number = 0; tonwerk_preset_name(number) != nullptr; ++number)
        list.append(list.empty() ? "" : ", ").append(tonwerk_preset_name(number));
    return list;
}

} // namespace tonwerk::app
