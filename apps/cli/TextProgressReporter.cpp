// SPDX-License-Identifier: MIT
#include "cli/TextProgressReporter.h"

#include <cmath>

#include "system/Console.h"
#include "system/Text.h"

namespace tonwerk::app
{

void TextProgressReporter::begin(std::size_t songs)
{
    const std::lock_guard lock(guard);
    songCount = songs;
    if (songs > 0)
        display.emplace(standardErrorIsTerminal());
}

void TextProgressReporter::noted(const std::string& sentence)
{
    const std::lock_guard lock(guard);
    if (display)
        display->endLine();
    std::fprintf(stderr, "Note: %s\n", printable(sentence).c_str());
}

void TextProgressReporter::progress(const SongEntry& song, double fraction, double audioSeconds)
{
    const std::lock_guard lock(guard);
    running[toText(song.path)] = {fraction, audioSeconds};
    Running all{static_cast<double>(finished), finishedSeconds};
    for (const auto& [path, one] : running)
    {
        all.fraction += one.fraction;
        all.audioSeconds += one.audioSeconds;
    }
    display->update(all.fraction / static_cast<double>(songCount), all.audioSeconds);
}

void TextProgressReporter::done(const SongEntry& song, const SongSummary& summary)
{
    const std::lock_guard lock(guard);
    finish(toText(song.path));
    for (const std::string& warning : summary.warnings)
        warn(warning);
    if (summary.nonFiniteSamples > 0)
        warn(std::to_string(summary.nonFiniteSamples) + " samples of the song are not finite numbers.");
    if (summary.gain < 1.0)
    {
        char decibels[32]; // NOLINT(modernize-avoid-c-arrays): what snprintf fills
        std::snprintf(decibels, sizeof decibels, "%.2f", -20.0 * std::log10(summary.gain));
        warn("All files of " + quoted(song.path) + " are lowered by " + decibels +
             " dB, so that none clips.");
    }
    std::fprintf(lines, "%s (%s): real-time factor %.3f, null test %.1f dBFS (%.3g)\n",
                 printable(toText(song.path.filename())).c_str(), asClock(summary.audioSeconds).c_str(),
                 summary.processingSeconds / summary.audioSeconds, 20.0 * std::log10(summary.nullPeak),
                 summary.nullPeak);
    std::fflush(lines);
}

void TextProgressReporter::skipped(const SongEntry& song)
{
    const std::lock_guard lock(guard);
    std::fprintf(lines, "%s: already done\n", printable(toText(song.path.filename())).c_str());
}

void TextProgressReporter::failed(const std::string& input, const std::string& sentence)
{
    const std::lock_guard lock(guard);
    finish(input);
    std::fprintf(stderr, "tonwerk-separate: %s\n", printable(sentence).c_str());
}

void TextProgressReporter::end(const BatchCounts& counts)
{
    const std::lock_guard lock(guard);
    display.reset();
    if (counts.done + counts.failed + counts.skipped > 1)
        std::fprintf(lines, "%zu done, %zu failed, %zu skipped\n", counts.done, counts.failed,
                     counts.skipped);
    std::fflush(lines);
}

/// Takes a song off the running ones, and ends the progress bar's line for the text that follows.
void TextProgressReporter::finish(const std::string& path)
{
    const auto song = running.find(path);
    if (song != running.end())
    {
        ++finished;
        finishedSeconds += song->second.audioSeconds;
        running.erase(song);
    }
    if (display)
        display->endLine();
}

void TextProgressReporter::warn(const std::string& sentence) const
{
    std::fprintf(stderr, "Warning: %s\n", printable(sentence).c_str());
}

} // namespace tonwerk::app
