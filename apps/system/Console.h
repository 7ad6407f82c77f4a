// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_CONSOLE_H
#define TONWERK_APPS_SYSTEM_CONSOLE_H

#include <string>

namespace tonwerk::app
{

/// Makes the console show our UTF-8 text.
void setUpConsole();

/// Whether standard error is a terminal, and not a file or pipe.
bool standardErrorIsTerminal();

/// Opens those of the standard streams that the parent has closed on the null device. Otherwise the next
/// files would take their places, and what is printed would end up in them.
void openStandardStreams();

/// Writes to standard error past the C library, whose stream another thread may hold, and without waiting for
/// a reader where the system permits that.
void sayAtTheEnd(const std::string& text);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_CONSOLE_H
