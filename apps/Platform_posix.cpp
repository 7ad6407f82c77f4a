#include "Platform.h"

#include <csignal>

#include <unistd.h>

namespace tonwerk::app::platform
{

namespace
{

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void requestStop(int)
{
    stopRequested = 1;
}

} // namespace

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    return std::fopen(path.c_str(), mode == FileMode::read ? "rb" : "wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return fseeko(file, offset, origin) == 0;
}

void setUpConsole() {}

bool standardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

void watchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = requestStop;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        // A signal that our parent has switched off (nohup) stays off.
        struct sigaction former = {};
        if (sigaction(signal, nullptr, &former) == 0 && former.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

bool interruptRequested()
{
    return stopRequested != 0;
}

} // namespace tonwerk::app::platform
