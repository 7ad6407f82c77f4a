// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_LIBRARYMONITOR_H
#define TONWERK_APPS_SEPARATION_LIBRARYMONITOR_H

#include <string>
#include <vector>

namespace tonwerk::app
{

/// A message of the library about its work.
struct LibraryMessage
{
    /// Whether it tells of a failure: the stems of this part of the song are then not the model's.
    bool isFailure;
    /// The message on one line.
    std::string text;
};

/// Tells what the library does not throw: failed runs of the model in the middle of a stream, and warnings.
/// Several threads may ask at the same time.
class LibraryMonitor
{
public:
    LibraryMonitor() = default;
    virtual ~LibraryMonitor() = default;

    LibraryMonitor(const LibraryMonitor&) = delete;
    LibraryMonitor& operator=(const LibraryMonitor&) = delete;

    /// \return the messages of the library's work on the calling thread since the thread last asked
    virtual std::vector<LibraryMessage> take() = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_LIBRARYMONITOR_H
