#include "Platform.h"

#include <atomic>

#include <windows.h>

namespace tonwerk::app::platform
{

namespace
{

std::atomic<bool> stopRequested{false};

// Runs on a thread of the system's. After a closed console or the end of a session the process ends as soon
// as this returns, so then the thread waits for the main one, within the few seconds that the system grants.
BOOL WINAPI requestStop(DWORD event)
{
    const bool again = stopRequested.exchange(true);
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return again ? FALSE : TRUE;
}

} // namespace

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    return _wfopen(path.c_str(), mode == FileMode::read ? L"rb" : L"wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return _fseeki64(file, offset, origin) == 0;
}

void setUpConsole()
{
    SetConsoleOutputCP(CP_UTF8);
}

bool standardErrorIsTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

void watchInterrupts()
{
    SetConsoleCtrlHandler(requestStop, TRUE);
}

bool interruptRequested()
{
    return stopRequested.load();
}

} // namespace tonwerk::app::platform
