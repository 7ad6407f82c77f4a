// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_STEMS_H
#define TONWERK_APPS_SEPARATION_STEMS_H

#include <bitset>
#include <string>
#include <vector>

#include "common/Stems.h"

namespace tonwerk::app
{

// Of the library: names of the stems and of their files, in the order of its results. The first six come from
// the model; the library computes the last two from them.
using tonwerk::modelStemCount;
using tonwerk::stemNames;

/// A choice of stems, by their place in stemNames.
using StemSet = std::bitset<stemNames.size()>;

/// The stems of these names.
/// \throws UsageError for an unknown name, or none at all
StemSet stemsNamed(const std::vector<std::string>& names);

/// The stem names as text: "vocals, drum, ...".
std::string listOfStems();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_STEMS_H
