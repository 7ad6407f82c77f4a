// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_PROGRAM_H
#define TONWERK_APPS_PROGRAM_H

#include <string>
#include <vector>

namespace tonwerk::app
{

/// Runs tonwerk-separate.
/// \param arguments what follows the program's name on the command line, as UTF-8
/// \return the exit code
int runProgram(const std::vector<std::string>& arguments);

} // namespace tonwerk::app

#endif // TONWERK_APPS_PROGRAM_H
