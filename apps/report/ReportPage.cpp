// SPDX-License-Identifier: MIT
#include "report/ReportPage.h"

#include <string_view>

#include <nlohmann/json.hpp>

#include "report/ReportFiles.h"

namespace tonwerk::app
{

namespace
{

/// JSON for a script element. Without "<" it contains neither "</script" nor "<!--".
std::string asScriptText(const nlohmann::json& data)
{
    constexpr bool onlyAscii = true;
    const std::string json = data.dump(-1, ' ', onlyAscii, nlohmann::json::error_handler_t::replace);
    std::string text;
    text.reserve(json.size());
    for (const char character : json)
    {
        if (character == '<')
            text += "\\u003c";
        else
            text += character;
    }
    return text;
}

} // namespace

std::string reportPage(const nlohmann::json& data)
{
    const std::string_view frame = reportFrame();
    std::string page;
    std::size_t place = 0;
    const auto insertAt = [&](std::string_view mark, std::string_view content)
    {
        const std::size_t found = frame.find(mark, place);
        page.append(frame.substr(place, found - place)).append(content);
        place = found + mark.size();
    };
    insertAt("/* report.css */", reportStyle());
    insertAt(R"({"report": "data"})", asScriptText(data));
    insertAt("/* engine */", reportEngine());
    insertAt("/* scripts */", reportScript());
    return page.append(frame.substr(place));
}

} // namespace tonwerk::app
