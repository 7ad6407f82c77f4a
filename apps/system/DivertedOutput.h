// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_DIVERTEDOUTPUT_H
#define TONWERK_APPS_SYSTEM_DIVERTEDOUTPUT_H

#include <cstdio>

namespace tonwerk::app
{

/// Where text goes once standard output is diverted. Both streams are open until the process ends.
struct DivertedOutput
{
    /// The former standard output.
    std::FILE* output;
    /// Reads what has been written to standard output since. Null if there is no temporary file.
    std::FILE* written;
};

/// Sends everything that is written to standard output from here on to a temporary file, which the system
/// deletes with the process. The library writes its log there, which must stay out of the program's output.
DivertedOutput divertStandardOutput();

/// The calling thread's number as the library's log lines show it.
unsigned threadNumber();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_DIVERTEDOUTPUT_H
