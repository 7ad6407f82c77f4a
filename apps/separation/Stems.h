// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_STEMS_H
#define TONWERK_APPS_SEPARATION_STEMS_H

#include <array>
#include <bitset>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <tonwerk/TonwerkProc.h>

namespace tonwerk::app
{

/// Names of the stems and of their files, in the order of TonwerkProc::process's result. The first six come
/// from the model; the library computes the last two from them.
inline constexpr std::array<std::string_view, 8> stemNames{
    "vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass", "residual", "mix"};

inline constexpr std::size_t modelStemCount = 6;

/// A choice of stems, by their place in stemNames.
using StemSet = std::bitset<stemNames.size()>;

/// The stems of these names.
/// \throws UsageError for an unknown name, or none at all
StemSet stemsNamed(const std::vector<std::string>& names);

/// The stem names as text: "vocals, drum, ...".
std::string listOfStems();

/// The library's configuration for these stems (only the model's six matter) and interleaved stereo.
TonwerkProcConfig processorConfig(const StemSet& asked);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_STEMS_H
