// SPDX-License-Identifier: MIT
#include "system/Console.h"

#include <cstdio>

#include <fcntl.h>
#include <io.h>
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

void openStandardStreams()
{
    for (std::FILE* const stream : {stdin, stdout, stderr})
        if (_fileno(stream) < 0 || _get_osfhandle(_fileno(stream)) < 0)
            static_cast<void>(_wfreopen(L"NUL", stream == stdin ? L"rb" : L"wb", stream));
}

void sayAtTheEnd(const std::string& text)
{
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written,
              nullptr);
}

} // namespace tonwerk::app
