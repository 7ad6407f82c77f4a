// SPDX-License-Identifier: MIT
/// \file ModelContract.h
/// The names of a separation network's inputs and outputs.
#ifndef TONWERK_INFERENCE_MODELCONTRACT_H
#define TONWERK_INFERENCE_MODELCONTRACT_H

#include <array>
#include <cstddef>

#include "common/Stems.h"

/// The spectrogram, then one flag per stem in the order of StemFlags: a network has its inputs in this order.
inline constexpr std::array<const char*, tonwerk::modelStemCount + 1> contractInputs = []
{
    std::array<const char*, tonwerk::modelStemCount + 1> names{"unified_input"};
    for (const tonwerk::ModelStem& stem : tonwerk::modelStems)
        names.at(stem.flagPlace + 1) = stem.flagInput;
    return names;
}();

/// In the order of StemFlags, too. A network may have its outputs in any order: they are found by name.
inline constexpr std::array<const char*, tonwerk::modelStemCount> contractOutputs = []
{
    std::array<const char*, tonwerk::modelStemCount> names{};
    for (const tonwerk::ModelStem& stem : tonwerk::modelStems)
        names.at(stem.flagPlace) = stem.output;
    return names;
}();

#endif // TONWERK_INFERENCE_MODELCONTRACT_H
