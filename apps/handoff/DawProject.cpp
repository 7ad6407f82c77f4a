// SPDX-License-Identifier: MIT
#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include <nlohmann/json.hpp>

#include "handoff/Session.h"
#include "handoff/ZipFile.h"

namespace tonwerk::app
{

namespace
{

constexpr std::string_view declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

/// The shortest text that gives the number back.
std::string numberOf(double value)
{
    return nlohmann::json(value).dump();
}

std::string colorOf(Color color)
{
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "#%02x%02x%02x", color.red, color.green, color.blue);
    return text.data();
}

/// Text for XML: bytes that are no UTF-8 become U+FFFD, characters that XML does not allow are left out.
std::string escaped(const std::string& text)
{
    const std::string json =
        nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string result;
    for (const char character : nlohmann::json::parse(json).get<std::string>())
    {
        switch (character)
        {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            if (static_cast<unsigned char>(character) >= ' ')
                result += character;
        }
    }
    for (const std::string_view noCharacter : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"})
        for (std::size_t place = 0; (place = result.find(noCharacter, place)) != std::string::npos;)
            result.erase(place, noCharacter.size());
    return result;
}

/// The mixer's part of a track, at unity gain and in the middle.
std::string channelOf(const std::string& id, std::string_view role, unsigned channels)
{
    const bool isMaster = role == "master";
    return "      <Channel id=\"" + id + "\" audioChannels=\"" + std::to_string(channels) + "\" role=\"" +
           std::string(role) + "\" solo=\"false\"" + (isMaster ? "" : " destination=\"master\"") +
           ">\n"
           "        <Mute id=\"" +
           id + "-mute\" name=\"Mute\" value=\"false\"/>\n        <Pan id=\"" + id +
           "-pan\" name=\"Pan\" unit=\"normalized\" min=\"0\" max=\"1\" value=\"0.5\"/>\n        <Volume "
           "id=\"" +
           id +
           "-volume\" name=\"Volume\" unit=\"linear\" min=\"0\" max=\"2\" value=\"1\"/>\n      </Channel>\n";
}

std::string trackOf(const Session& session, const Session::Track& track, const std::string& id)
{
    return "    <Track id=\"" + id + "\" name=\"" + escaped(track.title) + "\" color=\"" +
           colorOf(track.color) + "\" contentType=\"audio\" loaded=\"true\">\n" +
           channelOf(id + "-channel", "regular", session.channels) + "    </Track>\n";
}

/// The whole file as one clip from the start.
std::string laneOf(const Session& session, const Session::Track& track, const std::string& id)
{
    const std::string seconds = numberOf(session.seconds());
    return "      <Lanes id=\"" + id + "-lane\" track=\"" + id + "\">\n        <Clips id=\"" + id +
           "-clips\">\n          <Clip name=\"" + escaped(track.title) + "\" time=\"0\" duration=\"" +
           seconds + "\" contentTimeUnit=\"seconds\" playStart=\"0\">\n            <Audio id=\"" + id +
           "-audio\" channels=\"" + std::to_string(session.channels) + "\" duration=\"" + seconds +
           "\" sampleRate=\"" + std::to_string(session.sampleRate) + "\">\n              <File path=\"" +
           track.file +
           "\" external=\"true\"/>\n            </Audio>\n          </Clip>\n        </Clips>\n      "
           "</Lanes>\n";
}

std::string projectXml(const Session& session)
{
    std::string structure;
    std::string lanes;
    for (std::size_t place = 0; place < session.tracks.size(); ++place)
    {
        const std::string id = "track" + std::to_string(place + 1);
        structure += trackOf(session, session.tracks[place], id);
        lanes += laneOf(session, session.tracks[place], id);
    }
    return std::string(declaration) +
           "<Project version=\"1.0\">\n  <Application name=\"tonwerk-separate\" version=\"" TONWERK_VERSION
           "\"/>\n  <Structure>\n" +
           structure +
           "    <Track id=\"master-track\" name=\"Master\" contentType=\"audio\" loaded=\"true\">\n" +
           channelOf("master", "master", 2) +
           "    </Track>\n  </Structure>\n  <Arrangement id=\"arrangement\">\n"
           "    <Lanes id=\"lanes\" timeUnit=\"seconds\">\n" +
           lanes + "    </Lanes>\n  </Arrangement>\n</Project>\n";
}

} // namespace

std::string dawProject(const Session& session)
{
    const std::string about = std::string(declaration) + "<MetaData>\n  <Title>" + escaped(session.title) +
                              "</Title>\n  <Comment>Stems by tonwerk-separate</Comment>\n</MetaData>\n";
    return zipFile({{"project.xml", projectXml(session)}, {"metadata.xml", about}});
}

} // namespace tonwerk::app
