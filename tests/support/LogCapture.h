// SPDX-License-Identifier: MIT
/// \file LogCapture.h
/// Collects what the code under test logs.
#ifndef TONWERK_TESTS_SUPPORT_LOGCAPTURE_H
#define TONWERK_TESTS_SUPPORT_LOGCAPTURE_H

#include <string>
#include <vector>

#include "common/Log.h"

/// The process-wide log for as long as this object lives, kept in memory instead of printed. No other log may
/// exist when it is built; contexts built meanwhile find a log and set up none of their own.
class LogCapture
{
public:
    explicit LogCapture(plog::Severity maxSeverity = plog::verbose) : logger(maxSeverity)
    {
        logger.addAppender(&collector);
    }

    /// Every record so far as "SEVERITY [function] message": the printed line without what differs from run
    /// to run (time, thread) and from edit to edit (source line).
    const std::vector<std::string>& lines() const { return collector.lines; }

    /// The records of exactly this severity.
    std::vector<std::string> lines(plog::Severity severity) const
    {
        std::vector<std::string> chosen;
        const std::string start = std::string(plog::severityToString(severity)) + " ";
        for (const std::string& line : collector.lines)
            if (line.compare(0, start.size(), start) == 0)
                chosen.push_back(line);
        return chosen;
    }

    void clear() { collector.lines.clear(); }

private:
    class Collector : public plog::IAppender
    {
    public:
        void write(const plog::Record& record) override
        {
            std::string line =
                std::string(plog::severityToString(record.getSeverity())) + " [" + record.getFunc() + "] ";
            // plog's characters are wide on Windows; everything that is logged is ASCII.
            for (const auto* unit = record.getMessage(); *unit != 0; ++unit)
                line += static_cast<unsigned>(*unit) < 128 ? static_cast<char>(*unit) : '?';
            lines.push_back(line);
        }

        std::vector<std::string> lines;
    };

    Collector collector;
    plog::Logger<PLOG_DEFAULT_INSTANCE_ID> logger;
};

#endif // TONWERK_TESTS_SUPPORT_LOGCAPTURE_H
