// SPDX-License-Identifier: MIT
/// \file ModelContract.h
/// The names of a separation network's inputs and outputs.
#ifndef TONWERK_INFERENCE_MODELCONTRACT_H
#define TONWERK_INFERENCE_MODELCONTRACT_H

#include <array>

/// The spectrogram, then one flag per stem in the order of StemFlags: a network has its inputs in this order.
inline constexpr std::array<const char*, 7> contractInputs{
    "unified_input", "vocals_flag",          "drum_flag",           "bass_flag",
    "piano_flag",    "acoustic_guitar_flag", "electric_guitar_flag"};

/// In the order of StemFlags, too. A network may have its outputs in any order: they are found by name.
inline constexpr std::array<const char*, 6> contractOutputs{
    "vocals_output",          "drum_output",           "bass_output", "piano_output",
    "acoustic_guitar_output", "electric_guitar_output"};

#endif // TONWERK_INFERENCE_MODELCONTRACT_H
