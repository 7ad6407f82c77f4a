// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_INTERRUPTS_H
#define TONWERK_APPS_SYSTEM_INTERRUPTS_H

namespace tonwerk::app
{

/// From here on, a request to stop (Ctrl-C, end of the session) only sets a flag, so that the program can
/// tidy up. A second request ends the program at once.
void watchInterrupts();

/// Whether a request to stop has arrived.
bool interruptRequested();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_INTERRUPTS_H
