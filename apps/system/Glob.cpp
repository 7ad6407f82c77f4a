// SPDX-License-Identifier: MIT
#include "system/Glob.h"

#include <cstddef>
#include <string_view>
#include <system_error>

#include "system/LowerCase.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// Steps over one UTF-8 character.
std::size_t nextCharacter(std::string_view text, std::size_t place)
{
    do
        ++place;
    while (place < text.size() && (static_cast<unsigned char>(text[place]) & 0xC0U) == 0x80U);
    return place;
}

/// Whether a name matches a pattern. After a mismatch the last "*" takes one character more, which is enough:
/// an earlier one need never take more than it has.
bool matches(std::string_view pattern, std::string_view name)
{
    std::size_t inPattern = 0;
    std::size_t inName = 0;
    std::size_t star = std::string_view::npos;
    std::size_t starEnd = 0;
    while (inName < name.size())
    {
        const char wanted = inPattern < pattern.size() ? pattern[inPattern] : '\0';
        if (wanted == '*')
        {
            star = inPattern++;
            starEnd = inName;
        }
        else if (wanted == '?' || (wanted != '\0' && wanted == name[inName]))
        {
            inName = wanted == '?' ? nextCharacter(name, inName) : inName + 1;
            ++inPattern;
        }
        else if (star != std::string_view::npos)
        {
            inPattern = star + 1;
            inName = starEnd = nextCharacter(name, starEnd);
        }
        else
        {
            return false;
        }
    }
    return pattern.find_first_not_of('*', inPattern) == std::string_view::npos;
}

std::vector<std::filesystem::path> matchesIn(const std::filesystem::path& folder, const std::string& pattern)
{
    std::vector<std::filesystem::path> found;
    const std::string wanted = inLowerCase(pattern);
    std::error_code failure;
    const std::filesystem::path place = folder.empty() ? std::filesystem::path(".") : folder;
    for (std::filesystem::directory_iterator entry(place, failure), end; !failure && entry != end;
         entry.increment(failure))
    {
        const std::string name = toText(entry->path().filename());
        const bool hidden = name.front() == '.' && pattern.front() != '.';
        if (!hidden && matches(wanted, inLowerCase(name)))
            found.push_back(folder / entry->path().filename());
    }
    return found;
}

} // namespace

bool isPattern(const std::string& text)
{
    return text.find_first_of("*?") != std::string::npos;
}

std::vector<std::filesystem::path> matchingPaths(const std::string& pattern)
{
    const std::filesystem::path whole = toPath(pattern);
    std::vector<std::filesystem::path> found{whole.root_path()};
    for (const auto& part : whole.relative_path())
    {
        std::vector<std::filesystem::path> longer;
        for (const auto& path : found)
        {
            if (!isPattern(toText(part)))
            {
                longer.push_back(path / part);
                continue;
            }
            const auto more = matchesIn(path, toText(part));
            longer.insert(longer.end(), more.begin(), more.end());
        }
        found = std::move(longer);
    }
    std::error_code failure;
    std::erase_if(found, [&failure](const auto& path) { return !std::filesystem::exists(path, failure); });
    return found;
}

} // namespace tonwerk::app
