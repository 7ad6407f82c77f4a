// SPDX-License-Identifier: MIT
#include "common/MessageReader.h"

#include <cstddef>

namespace
{

constexpr std::uint32_t numberType = 0;
constexpr std::uint32_t eightBytesType = 1;
constexpr std::uint32_t bytesType = 2;
constexpr std::uint32_t groupType = 3;
constexpr std::uint32_t endOfGroupType = 4;
constexpr std::uint32_t fourBytesType = 5;

} // namespace

bool MessageReader::next()
{
    while (const auto tag = readVarint())
    {
        // Tags have 32 bits; other readers drop what is beyond.
        const auto shortTag = static_cast<std::uint32_t>(*tag);
        const std::uint32_t type = shortTag & 7U;
        number = shortTag >> 3U;
        if (!readField(type))
            return false;
        if (openGroups == 0 && (type == numberType || type == bytesType))
            return true;
    }
    return false;
}

bool MessageReader::readField(std::uint32_t wireType)
{
    content = {};
    switch (wireType)
    {
    case numberType:
    {
        const auto read = readVarint();
        fieldKind = Kind::Number;
        integer = read.value_or(0);
        return read.has_value();
    }
    case bytesType:
    {
        const auto size = readVarint();
        fieldKind = Kind::Bytes;
        content = rest;
        if (!size || !skip(*size))
            return false;
        content = content.substr(0, static_cast<std::size_t>(*size));
        return true;
    }
    case eightBytesType:
        return skip(8);
    case fourBytesType:
        return skip(4);
    case groupType:
        ++openGroups;
        return true;
    case endOfGroupType:
        return openGroups-- > 0;
    default:
        return false;
    }
}

bool MessageReader::skip(std::uint64_t size)
{
    if (size > rest.size())
        return false;
    rest.remove_prefix(static_cast<std::size_t>(size));
    return true;
}

std::optional<std::uint64_t> MessageReader::readVarint()
{
    std::uint64_t result = 0;
    for (unsigned shift = 0; shift < 70 && !rest.empty(); shift += 7)
    {
        const auto byte = static_cast<unsigned char>(rest.front());
        rest.remove_prefix(1);
        if (shift < 64)
            result |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
        if (byte < 0x80)
            return result;
    }
    return std::nullopt;
}
