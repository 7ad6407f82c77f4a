// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_SELFCHECK_H
#define TONWERK_APPS_TOOLS_SELFCHECK_H

namespace tonwerk::app
{

/// What the library made of a signal whose stems are known.
struct SelfCheckResult
{
    double audioSeconds;
    double processingSeconds;
    /// Largest absolute difference of a stem from what it must be, 1 being full scale.
    double stemError;
    /// Largest absolute value of six stems + residual - input.
    double nullPeak;
};

/// Separates some seconds of tones with a network that is part of the program and gives each stem a fixed
/// part of its input.
/// \throws std::exception as the library does
SelfCheckResult runSelfCheck();

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_SELFCHECK_H
