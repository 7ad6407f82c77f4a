// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_HANDOFF_SESSION_H
#define TONWERK_APPS_HANDOFF_SESSION_H

#include <cstdint>
#include <string>
#include <vector>

#include "separation/StemColors.h"

namespace tonwerk::app
{

/// The stems of a song as the tracks of a session in a recording program.
struct Session
{
    struct Track
    {
        std::string title;
        /// Of the sound, in the folder of the session's file. ASCII.
        std::string file;
        Color color;
    };

    /// Of the song: UTF-8, or nearly.
    std::string title;
    unsigned channels;
    unsigned sampleRate;
    /// Samples per channel of every track.
    std::uint64_t frames;
    std::vector<Track> tracks;

    double seconds() const { return static_cast<double>(frames) / static_cast<double>(sampleRate); }
};

/// The session as a DAWproject file, version 1.0: a zip archive with a track per stem, routed to a master. It
/// refers to the stems beside it.
std::string dawProject(const Session& session);

/// The session as a project of REAPER, which is text.
std::string reaperProject(const Session& session);

} // namespace tonwerk::app

#endif // TONWERK_APPS_HANDOFF_SESSION_H
