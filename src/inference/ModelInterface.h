// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_MODELINTERFACE_H
#define TONWERK_INFERENCE_MODELINTERFACE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <tonwerk/StreamGeometry.h>

#include "inference/OrtApi.h"

/// Shape of a network's input spectrogram and of each of its six outputs: a real and an imaginary plane per
/// channel, frames, bins.
inline constexpr std::array<std::int64_t, 4> spectrogramShape{
    1, 2 * tonwerk::geometry::channels, tonwerk::geometry::segmentFrames, tonwerk::geometry::bins};

/// How a network's inputs and outputs differ from what the library expects, a sentence each.
struct InterfaceFaults
{
    std::vector<std::string> violations; ///< with these the library cannot use the network
    std::vector<std::string> warnings;
};

/// Compares the names, types and shapes that a network declares with the contract.
InterfaceFaults checkInterface(const Ort::Session& session);

#endif // TONWERK_INFERENCE_MODELINTERFACE_H
