// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_SELFCHECK_H
#define TONWERK_APPS_TOOLS_SELFCHECK_H

#include <string>
#include <vector>

namespace tonwerk::app
{

/// How well the library separated a signal whose stems are known.
struct SelfCheckResult
{
    double audioSeconds;
    double processingSeconds;
    /// Largest absolute error of a stem, 1 being full scale.
    double stemError;
    /// Largest absolute value of six stems + residual - input.
    double nullPeak;
};

/// Separates some seconds of tones with a network inside the program whose stems are fixed fractions of its
/// input.
/// \param log receives what the library has to say, also if it fails
/// \throws Failure if the library fails
SelfCheckResult runSelfCheck(std::vector<std::string>& log);

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_SELFCHECK_H
