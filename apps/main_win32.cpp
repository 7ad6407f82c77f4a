// SPDX-License-Identifier: MIT
#include "Program.h"

#include "system/Text.h"

// Windows shells leave patterns such as *.wav to the program. With this variable MinGW's start-up code has
// the C runtime expand them; MSVC's does so because wsetargv.obj is linked in.
extern "C"
{
    extern int _dowildcard;
    int _dowildcard = -1;
}

int wmain(int argc, wchar_t** argv)
{
    std::vector<std::string> arguments;
    // To the null at the end: Wine counts too many.
    for (wchar_t** argument = argv + (argc > 0 ? 1 : 0); *argument != nullptr; ++argument)
        arguments.push_back(tonwerk::app::toText(*argument));
    return tonwerk::app::runProgram(arguments);
}
