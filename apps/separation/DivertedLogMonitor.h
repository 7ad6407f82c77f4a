// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_DIVERTEDLOGMONITOR_H
#define TONWERK_APPS_SEPARATION_DIVERTEDLOGMONITOR_H

#include <cstdio>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include "separation/LibraryMonitor.h"
#include "system/DivertedOutput.h"

namespace tonwerk::app
{

/// Learns what happens in the library from the log that it writes to standard output.
class DivertedLogMonitor : public LibraryMonitor
{
public:
    /// \param streams standard output as it was, and what the library writes there now; must stay open
    /// \throws Failure if standard output could not be diverted
    explicit DivertedLogMonitor(DivertedOutput streams);

    std::vector<LibraryMessage> take() override;

    /// Standard output as it was before, for the program's own text. Not owned.
    std::FILE* output() const { return streams.output; }

private:
    struct Record
    {
        unsigned thread;
        LibraryMessage message;
    };

    void readNew();
    void add(const std::string& line);

    DivertedOutput streams;
    std::mutex guard;
    std::string unfinished; ///< start of a line whose end is not written yet
    std::list<Record> records;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_DIVERTEDLOGMONITOR_H
