// SPDX-License-Identifier: MIT
#include "system/Console.h"

#include <unistd.h>

namespace tonwerk::app
{

void setUpConsole() {}

bool standardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

} // namespace tonwerk::app
