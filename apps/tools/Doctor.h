// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_DOCTOR_H
#define TONWERK_APPS_TOOLS_DOCTOR_H

namespace tonwerk::app
{

/// Checks everything that a separation needs on this machine, and prints the findings and remedies on
/// standard output.
/// \return whether all is well
bool runDoctor();

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_DOCTOR_H
