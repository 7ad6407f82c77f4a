// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_LIBRARYLOG_H
#define TONWERK_APPS_SEPARATION_LIBRARYLOG_H

#include <cstdio>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// What the library has logged: warnings and errors, which it writes to standard output and the program has
/// diverted into a file. Several threads may ask at once.
class LibraryLog
{
public:
    struct Record
    {
        unsigned thread;
        bool isError;
        /// The message on one line.
        std::string text;
    };

    /// \param written what has been logged so far and will be; not owned, may not be null
    explicit LibraryLog(std::FILE* written) : file(written) {}

    /// The records of the calling thread that it has not taken yet.
    std::vector<Record> take();

private:
    void readNew();
    void add(const std::string& line);

    std::FILE* file;
    std::mutex guard;
    std::string unfinished; ///< the beginning of a line whose end has not been written yet
    std::list<Record> records;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_LIBRARYLOG_H
