// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_CONSOLE_H
#define TONWERK_APPS_SYSTEM_CONSOLE_H

namespace tonwerk::app
{

/// Makes the console show our UTF-8 text.
void setUpConsole();

/// Whether standard error is a terminal, and not a file or pipe.
bool standardErrorIsTerminal();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_CONSOLE_H
