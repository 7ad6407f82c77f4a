// SPDX-License-Identifier: MIT
#include "handoff/ZipFile.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tonwerk::app
{

namespace
{

/// Appends numbers, low byte first, as the format has them (PKWARE's APPNOTE, sections 4.3.7 to 4.3.16).
class Bytes
{
public:
    Bytes& two(std::uint32_t value) { return number(value, 2); }
    Bytes& four(std::uint32_t value) { return number(value, 4); }
    Bytes& text(std::string_view characters)
    {
        content += characters;
        return *this;
    }

    std::uint32_t size() const { return static_cast<std::uint32_t>(content.size()); }
    const std::string& get() const { return content; }

private:
    Bytes& number(std::uint32_t value, unsigned bytes)
    {
        for (unsigned byte = 0; byte < bytes; ++byte)
            content += static_cast<char>(static_cast<unsigned char>(value >> 8 * byte & 0xFFU));
        return *this;
    }

    std::string content;
};

/// CRC-32 of IEEE 802.3, bit by bit.
std::uint32_t checksum(std::string_view bytes)
{
    constexpr std::uint32_t polynomial = 0xEDB88320U;
    constexpr int bitsPerByte = 8;
    std::uint32_t value = 0xFFFFFFFFU;
    for (const char byte : bytes)
    {
        value ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < bitsPerByte; ++bit)
            value = value >> 1U ^ ((value & 1U) != 0 ? polynomial : 0U);
    }
    return ~value;
}

/// What the headers in front of a file and at the archive's end have in common.
void describe(Bytes& archive, const ZipEntry& entry)
{
    constexpr std::uint32_t version = 20;
    constexpr std::uint32_t firstDay = 0x0021; // 1980-01-01
    const auto size = static_cast<std::uint32_t>(entry.content.size());
    archive.two(version).two(0).two(0).two(0).two(firstDay); // no flags, stored, midnight
    archive.four(checksum(entry.content)).four(size).four(size);
    archive.two(static_cast<std::uint32_t>(entry.name.size())).two(0);
}

} // namespace

std::string zipFile(const std::vector<ZipEntry>& entries)
{
    Bytes archive;
    Bytes directory;
    for (const ZipEntry& entry : entries)
    {
        constexpr std::uint32_t writtenBy = 20;
        directory.text({"PK\1\2", 4}).two(writtenBy);
        describe(directory, entry);
        directory.two(0).two(0).two(0).four(0).four(archive.size()).text(entry.name);
        archive.text({"PK\3\4", 4});
        describe(archive, entry);
        archive.text(entry.name).text(entry.content);
    }
    const auto count = static_cast<std::uint32_t>(entries.size());
    const std::uint32_t start = archive.size();
    archive.text(directory.get()).text({"PK\5\6", 4}).two(0).two(0).two(count).two(count);
    archive.four(directory.size()).four(start).two(0);
    return archive.get();
}

} // namespace tonwerk::app
