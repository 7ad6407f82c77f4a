// SPDX-License-Identifier: MIT
#include <cstdint>

#include <nlohmann/json.hpp>

#include "handoff/Session.h"

namespace tonwerk::app
{

namespace
{

/// REAPER's number of a colour: blue, green and red from above, and a bit that says that there is one.
std::uint32_t colorNumber(Color color)
{
    return 0x1000000U | std::uint32_t{color.blue} << 16U | std::uint32_t{color.green} << 8U | color.red;
}

std::string trackOf(const Session::Track& track, const std::string& seconds, unsigned channels)
{
    return "  <TRACK\n    NAME \"" + track.title + "\"\n    PEAKCOL " +
           std::to_string(colorNumber(track.color)) +
           "\n    VOLPAN 1 0 -1 -1 1\n    MUTESOLO 0 0 0\n    NCHAN " +
           std::to_string(channels == 1 ? 2 : channels) +
           "\n    MAINSEND 1 0\n    <ITEM\n      POSITION 0\n      LENGTH " + seconds +
           "\n      LOOP 0\n      NAME \"" + track.title +
           "\"\n      VOLPAN 1 0 1 -1\n      SOFFS 0\n"
           "      <SOURCE WAVE\n        FILE \"" +
           track.file + "\"\n      >\n    >\n  >\n";
}

} // namespace

std::string reaperProject(const Session& session)
{
    const std::string seconds = nlohmann::json(session.seconds()).dump();
    std::string project =
        "<REAPER_PROJECT 0.1 \"6.0\" 0\n  SAMPLERATE " + std::to_string(session.sampleRate) + " 1 0\n";
    for (const Session::Track& track : session.tracks)
        project += trackOf(track, seconds, session.channels);
    return project + ">\n";
}

} // namespace tonwerk::app
