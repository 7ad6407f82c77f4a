// SPDX-License-Identifier: MIT
/// \file Stems.h
/// The stems: their names, and the two orders that they have.
#ifndef TONWERK_COMMON_STEMS_H
#define TONWERK_COMMON_STEMS_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tonwerk
{

/// A stem that a network gives.
struct ModelStem
{
    const char* name;       ///< which is also that of its files
    const char* switchName; ///< of its switch, as the log has it
    const char* flagInput;  ///< of the network
    const char* output;     ///< of the network
    std::size_t flagPlace;  ///< among the network's flags
};

/// In output order: that of the host's switches, of the pipeline and of every result. The network's flags
/// have an order of their own, where bass comes third.
inline constexpr std::array<ModelStem, 6> modelStems{
    {{"vocals", "vocals", "vocals_flag", "vocals_output", 0},
     {"drum", "drum", "drum_flag", "drum_output", 1},
     {"piano", "piano", "piano_flag", "piano_output", 3},
     {"acoustic_guitar", "acousticGuitar", "acoustic_guitar_flag", "acoustic_guitar_output", 4},
     {"electric_guitar", "electricGuitar", "electric_guitar_flag", "electric_guitar_output", 5},
     {"bass", "bass", "bass_flag", "bass_output", 2}}};

inline constexpr std::size_t modelStemCount = modelStems.size();

/// Places in modelStems, by place among the network's flags.
inline constexpr std::array<std::size_t, modelStemCount> stemOfFlag = []
{
    std::array<std::size_t, modelStemCount> stems{};
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        stems.at(modelStems[stem].flagPlace) = stem;
    return stems;
}();

/// The two stems that are made of the six and of the mixture follow them in every result.
inline constexpr std::size_t residualStem = modelStemCount;
inline constexpr std::size_t mixStem = modelStemCount + 1;

/// Names of all stems of a result, in its order.
inline constexpr std::array<std::string_view, modelStemCount + 2> stemNames = []
{
    std::array<std::string_view, modelStemCount + 2> names;
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        names[stem] = modelStems[stem].name;
    names[residualStem] = "residual";
    names[mixStem] = "mix";
    return names;
}();

/// A choice of the network's stems, in output order.
using StemSelection = std::array<bool, modelStemCount>;

/// The names of the network's outputs in the order of the stems in every result.
inline std::vector<std::string> modelOutputs()
{
    std::vector<std::string> names;
    names.reserve(modelStems.size());
    for (const ModelStem& stem : modelStems)
        names.emplace_back(stem.output);
    return names;
}

} // namespace tonwerk

#endif // TONWERK_COMMON_STEMS_H
