// SPDX-License-Identifier: MIT
/// \file StemSwitches.h
/// From the switches of a TonwerkProcConfig to a selection and back.
#ifndef TONWERK_COMMON_STEMSWITCHES_H
#define TONWERK_COMMON_STEMSWITCHES_H

#include "common/Stems.h"
#include "tonwerk/TonwerkProc.h"

namespace tonwerk
{

inline StemSelection selectionOf(const TonwerkProcConfig& config)
{
    return {config.vocals != 0,         config.drum != 0,           config.piano != 0,
            config.acousticGuitar != 0, config.electricGuitar != 0, config.bass != 0};
}

/// Interleaved stereo with these stems.
inline TonwerkProcConfig configOf(const StemSelection& selection)
{
    const auto [vocals, drum, piano, acousticGuitar, electricGuitar, bass] = selection;
    TonwerkProcConfig config{};
    config.vocals = vocals;
    config.drum = drum;
    config.piano = piano;
    config.acousticGuitar = acousticGuitar;
    config.electricGuitar = electricGuitar;
    config.bass = bass;
    config.channels = 2;
    config.interleaved = true;
    return config;
}

} // namespace tonwerk

#endif // TONWERK_COMMON_STEMSWITCHES_H
