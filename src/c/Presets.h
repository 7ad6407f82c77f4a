// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_PRESETS_H
#define TONWERK_C_PRESETS_H

#include <cstddef>

#include "pipeline/RunGeometry.h"

namespace tonwerk::c
{

/// A geometry by name.
struct Preset
{
    const char* name;
    RunGeometry geometry;
};

/// That of a stream which asks for none.
const Preset& ordinaryPreset();

/// The preset of that name; null if there is none.
const Preset* findPreset(const char* name);

/// The presets in order of latency, shortest first; null behind the last one.
const Preset* presetAt(std::size_t index);

} // namespace tonwerk::c

#endif // TONWERK_C_PRESETS_H
