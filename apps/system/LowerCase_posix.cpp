// SPDX-License-Identifier: MIT
#include "system/LowerCase.h"

#include <cwchar>
#include <cwctype>

#include <locale.h> // NOLINT(modernize-deprecated-headers): declares POSIX's newlocale

namespace tonwerk::app
{

std::string inLowerCase(const std::string& utf8)
{
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (locale == nullptr)
        return utf8;
    const locale_t former = uselocale(locale);
    std::string lower;
    std::mbstate_t reading{};
    std::mbstate_t writing{};
    for (std::size_t place = 0; place < utf8.size();)
    {
        wchar_t character = 0;
        const std::size_t length =
            std::mbrtowc(&character, utf8.data() + place, utf8.size() - place, &reading);
        if (length == 0 || length > utf8.size() - place)
        {
            lower += utf8[place++]; // file names need not be UTF-8
            reading = {};
            continue;
        }
        std::string bytes(MB_CUR_MAX, '\0');
        const std::size_t count = std::wcrtomb(
            bytes.data(), static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character))), &writing);
        lower.append(bytes, 0, count);
        place += length;
    }
    uselocale(former);
    return lower;
}

} // namespace tonwerk::app
