// SPDX-License-Identifier: MIT
#include "audio/OggPages.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <span>
#include <vector>

namespace tonwerk::app
{

namespace
{

using Byte = std::uint8_t;

constexpr std::size_t headerSize = 27;
constexpr std::size_t checksumOffset = 22;
constexpr std::size_t segmentCountOffset = 26;
constexpr std::array<Byte, 4> capturePattern{'O', 'g', 'g', 'S'};

/// The checksum's polynomial, highest power first, without reflection.
constexpr std::uint32_t polynomial = 0x04c11db7;

constexpr std::array<std::uint32_t, 256> makeTable()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte)
    {
        std::uint32_t remainder = byte << 24;
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder << 1) ^ ((remainder >> 31) != 0 ? polynomial : 0U);
        table[byte] = remainder;
    }
    return table;
}

std::uint32_t checksum(std::span<const Byte> bytes)
{
    static constexpr auto table = makeTable();
    std::uint32_t remainder = 0;
    for (const Byte byte : bytes)
        remainder = (remainder << 8) ^ table[(remainder >> 24) ^ byte];
    return remainder;
}

/// Appends bytes of the file to the page.
/// \return false if the file ends before
bool append(BinaryFile& file, std::vector<Byte>& page, std::size_t count)
{
    const std::size_t size = page.size();
    page.resize(size + count);
    return file.read(page.data() + size, count) == count;
}

/// The checksum that the page states; zero takes its place, as the checksum is computed.
std::uint32_t takeChecksum(std::vector<Byte>& page)
{
    std::uint32_t stated = 0;
    for (std::size_t byte = 0; byte < sizeof stated; ++byte)
    {
        stated |= static_cast<std::uint32_t>(page[checksumOffset + byte]) << (8 * byte);
        page[checksumOffset + byte] = 0;
    }
    return stated;
}

} // namespace

bool oggPagesAreIntact(BinaryFile& file)
{
    file.seek(0, SEEK_SET);
    std::vector<Byte> page;
    Byte next = 0;
    while (file.read(&next, 1) == 1)
    {
        page.assign(1, next);
        if (!append(file, page, headerSize - 1) ||
            !std::equal(capturePattern.begin(), capturePattern.end(), page.begin()))
            return false;
        const std::size_t segments = page[segmentCountOffset];
        if (!append(file, page, segments))
            return false;
        const std::size_t content = std::accumulate(page.begin() + headerSize, page.end(), std::size_t{0});
        if (!append(file, page, content))
            return false;
        const std::uint32_t stated = takeChecksum(page);
        if (stated != checksum(page))
            return false;
    }
    return true;
}

} // namespace tonwerk::app
