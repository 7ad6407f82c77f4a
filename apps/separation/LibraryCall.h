// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_LIBRARYCALL_H
#define TONWERK_APPS_SEPARATION_LIBRARYCALL_H

#include <string>

#include <tonwerk/tonwerk_c.h>

namespace tonwerk::app
{

/// Looks at what a call of the library returned, on the thread that made it.
/// \param sentence begins the sentence for the user, which the library's reason completes
/// \throws Failure or std::bad_alloc if the call failed, Interrupted if it was cancelled
void requireDone(tonwerk_status status, const std::string& sentence);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_LIBRARYCALL_H
