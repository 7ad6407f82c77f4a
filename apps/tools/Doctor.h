// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_DOCTOR_H
#define TONWERK_APPS_TOOLS_DOCTOR_H

namespace tonwerk::app
{

/// Looks at everything that a separation needs on this machine, tells on standard output what it finds and
/// what to do about it.
/// \return whether all is well
bool runDoctor();

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_DOCTOR_H
