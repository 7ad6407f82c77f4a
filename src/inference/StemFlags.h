// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_STEMFLAGS_H
#define TONWERK_INFERENCE_STEMFLAGS_H

#include <array>
#include <bit>

#include "common/Stems.h"

/// Which stems the model is asked for, in the order of its flag inputs. That is not the order of its outputs
/// and of the host's stem switches, where bass comes last.
struct StemFlags
{
    bool vocals = false;
    bool drum = false;
    bool bass = false;
    bool piano = false;
    bool acousticGuitar = false;
    bool electricGuitar = false;
};

/// The same, to be counted through.
using StemFlagArray = std::array<bool, tonwerk::modelStemCount>;

static_assert(sizeof(StemFlags) == sizeof(StemFlagArray));

/// A selection, brought from output order to that of the flags.
constexpr StemFlags flagsOf(const tonwerk::StemSelection& selection)
{
    StemFlagArray flags{};
    for (std::size_t place = 0; place < flags.size(); ++place)
        flags[place] = selection[tonwerk::stemOfFlag[place]];
    return std::bit_cast<StemFlags>(flags);
}

/// And back.
constexpr tonwerk::StemSelection selectionOf(StemFlags flags)
{
    const auto given = std::bit_cast<StemFlagArray>(flags);
    tonwerk::StemSelection selection{};
    for (std::size_t stem = 0; stem < selection.size(); ++stem)
        selection[stem] = given[tonwerk::modelStems[stem].flagPlace];
    return selection;
}

#endif // TONWERK_INFERENCE_STEMFLAGS_H
