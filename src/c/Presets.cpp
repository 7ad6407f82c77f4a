// SPDX-License-Identifier: MIT
#include "c/Presets.h"

#include <array>
#include <cstring>

namespace tonwerk::c
{

namespace
{

constexpr std::array<Preset, 4> presets{
    {{"live", {8, 2, 0}}, {"best", {128, 64, 32}}, {"smooth", {200, 25, 16}}, {"normal", {249, 1, 0}}}};

} // namespace

const Preset& ordinaryPreset()
{
    return presets.back();
}

const Preset* findPreset(const char* name)
{
    for (const Preset& preset : presets)
        if (std::strcmp(preset.name, name) == 0)
            return &preset;
    return nullptr;
}

const Preset* presetAt(std::size_t index)
{
    return index < presets.size() ? &presets.at(index) : nullptr;
}

} // namespace tonwerk::c
