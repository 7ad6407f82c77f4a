// SPDX-License-Identifier: MIT
#include "system/LowerCase.h"

#include <filesystem>
#include <vector>

#include <windows.h>

namespace tonwerk::app
{

std::string inLowerCase(const std::string& utf8)
{
    const std::wstring text = std::filesystem::path(std::u8string(utf8.begin(), utf8.end())).wstring();
    std::vector<wchar_t> lower(text.size());
    if (LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_LOWERCASE, text.c_str(), static_cast<int>(text.size()),
                      lower.data(), static_cast<int>(lower.size()), nullptr, nullptr, 0) == 0)
        return utf8;
    const std::u8string result = std::filesystem::path(lower.begin(), lower.end()).u8string();
    return {result.begin(), result.end()};
}

} // namespace tonwerk::app
