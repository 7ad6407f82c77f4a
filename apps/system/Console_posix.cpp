// SPDX-License-Identifier: MIT
#include "system/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace tonwerk::app
{

void setUpConsole() {}

bool standardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

void openStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", O_RDWR)); // takes the lowest free number, which is this one
}

void sayAtTheEnd(const std::string& text)
{
    pollfd target{STDERR_FILENO, POLLOUT, 0};
    if (poll(&target, 1, 0) == 1 && (target.revents & POLLOUT) != 0)
        static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
}

} // namespace tonwerk::app
