// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_LIBRARYLOG_H
#define TONWERK_APPS_SEPARATION_LIBRARYLOG_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Collects what the library has to say of one model: warnings and errors.
class LibraryLog
{
public:
    struct Line
    {
        bool isError;
        /// The message on one line.
        std::string text;
    };

    /// A tonwerk_log_callback, from whatever thread. A line for which there is no memory is lost.
    /// \param log the LibraryLog
    static void add(void* log, std::int32_t level, const char* text) noexcept;

    /// The lines since the last call.
    std::vector<Line> take();

private:
    std::mutex guard;
    std::vector<Line> lines;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_LIBRARYLOG_H
