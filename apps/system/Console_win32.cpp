// SPDX-License-Identifier: MIT
#include "system/Console.h"

#include <windows.h>

namespace tonwerk::app
{

void setUpConsole()
{
    SetConsoleOutputCP(CP_UTF8);
}

bool standardErrorIsTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

} // namespace tonwerk::app
