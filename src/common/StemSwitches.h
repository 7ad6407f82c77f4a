// SPDX-License-Identifier: MIT
/// \file StemSwitches.h
/// From the switches of a TonwerkProcConfig to a selection.
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

} // namespace tonwerk

#endif // TONWERK_COMMON_STEMSWITCHES_H
