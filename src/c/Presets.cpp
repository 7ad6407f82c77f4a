// SPDX-License-Identifier: MIT
#include "c/Presets.h"

#include <array>
#include <cstring>

namespace tonwerk::c
{

namespace
{

// By rising latency. docs/presets.md has what was measured.
constexpr Preset normal{"normal", {249, 1, 0}};
constexpr std::array<Preset, 5> presets{{{"instant", {6, 0, 0}},
                                         {"live", {10, 0, 0}},
                                         normal,
                                         {"smooth", {156, 25, 72}},
                                         {"best", {128, 64, 61}}}};

} // namespace

const Preset& ordinaryPreset()
{
    return normal;
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
