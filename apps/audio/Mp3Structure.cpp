// SPDX-License-Identifier: MIT
#include "audio/Mp3Structure.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string_view>

namespace tonwerk::app
{

namespace
{

/// The first frame lies no farther behind the tags, as for the decoder.
constexpr std::int64_t farthestStart = 65536;

constexpr std::size_t headSize = 4;

using Kilobits = std::array<unsigned, 15>;

// By layer, from I to III; index 0 stands for a rate that the frame does not tell.
constexpr std::array<Kilobits, 3> firstVersionRates{
    {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}}};
constexpr std::array<Kilobits, 2> laterVersionRates{
    {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}}};
constexpr std::array<unsigned, 3> sampleRates{44100, 48000, 32000};

/// The head of a frame.
struct Frame
{
    std::uint32_t kind; ///< the bits that all frames of a file have in common
    std::int64_t size;
    bool isFirstVersion;
    bool isMono;
};

std::optional<Frame> frameOf(std::uint32_t head)
{
    const unsigned version = head >> 19U & 3U; // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
    const unsigned layer = 4 - (head >> 17U & 3U);
    const unsigned rateIndex = head >> 12U & 15U;
    const unsigned frequencyIndex = head >> 10U & 3U;
    const unsigned padding = head >> 9U & 1U;
    if (head >> 21U != 0x7FF || version == 1 || layer == 4 || rateIndex == 0 || rateIndex == 15 ||
        frequencyIndex == 3)
        return std::nullopt;
    const bool first = version == 3;
    const unsigned bits =
        1000 *
        (first ? firstVersionRates.at(layer - 1) : laterVersionRates.at(layer == 1 ? 0 : 1)).at(rateIndex);
    const unsigned frequency = sampleRates.at(frequencyIndex) / (first ? 1 : version == 2 ? 2 : 4);
    const unsigned slots =
        layer == 1 ? 12 * bits / frequency : (layer == 3 && !first ? 72 : 144) * bits / frequency;
    return Frame{head & 0xFFFE0C00U, (layer == 1 ? 4 : 1) * static_cast<std::int64_t>(slots + padding), first,
                 (head >> 6U & 3U) == 3};
}

/// A file by its bytes, of which it keeps a stretch.
class Bytes
{
public:
    explicit Bytes(FileSource& source) : file(source) {}

    /// \return fewer at the file's end
    std::string_view at(std::int64_t place, std::size_t count)
    {
        if (place < first ||
            place + static_cast<std::int64_t>(count) > first + static_cast<std::int64_t>(size))
        {
            // Readers look ahead by a frame and come back, so what lies before is kept, too.
            constexpr std::int64_t before = 4096;
            first = file.seek(std::clamp<std::int64_t>(place - before, 0, file.size()), SEEK_SET);
            size = file.read(stretch.data(), stretch.size());
        }
        const std::string_view all(stretch.data(), size);
        return all.substr(std::min(static_cast<std::size_t>(place - first), size), count);
    }

    /// A number with its highest byte first, 0 where the file ends before.
    std::uint32_t number(std::int64_t place)
    {
        std::uint32_t result = 0;
        const std::string_view four = at(place, headSize);
        for (const char byte : four)
            result = result << 8U | static_cast<unsigned char>(byte);
        return four.size() == headSize ? result : 0;
    }

    std::int64_t end() const { return file.size(); }

private:
    FileSource& file;
    std::array<char, 16384> stretch{};
    std::int64_t first = 0;
    std::size_t size = 0;
};

/// Behind the tags at the file's start (id3.org, "ID3 tag version 2.4.0", 3.1).
std::int64_t behindTags(Bytes& bytes)
{
    std::int64_t place = 0;
    while (bytes.at(place, 3) == "ID3")
    {
        std::int64_t size = 10;
        const std::string_view head = bytes.at(place, 10);
        if (head.size() < 10)
            return place;
        std::int64_t content = 0;
        for (const char byte : head.substr(6))
            content = content << 7U | (byte & 0x7F);
        const bool hasFooter = (head[5] & 0x10) != 0;
        size += content + (hasFooter ? 10 : 0);
        place += size;
    }
    return place;
}

/// Where a frame of this kind (0: of any) begins that is followed by another one or by the file's end.
std::optional<std::int64_t> findFrame(Bytes& bytes, std::int64_t from, std::int64_t to, std::uint32_t kind)
{
    for (std::int64_t place = from; place < std::min(to, bytes.end()); ++place)
    {
        const auto frame = frameOf(bytes.number(place));
        if (!frame || (kind != 0 && frame->kind != kind) || place + frame->size > bytes.end())
            continue;
        const auto next = frameOf(bytes.number(place + frame->size));
        if (place + frame->size == bytes.end() || (next && next->kind == frame->kind))
            return place;
    }
    return std::nullopt;
}

/// The number of frames in the notes of an encoder, which lie in a frame of their own, if this is one.
std::optional<std::uint64_t> notesAt(Bytes& bytes, std::int64_t place, const Frame& frame)
{
    const std::int64_t sideInformation =
        frame.isFirstVersion ? (frame.isMono ? 17 : 32) : (frame.isMono ? 9 : 17);
    const std::int64_t notes = place + static_cast<std::int64_t>(headSize) + sideInformation;
    const std::string_view mark = bytes.at(notes, 4);
    if (mark == "Xing" || mark == "Info")
        return (bytes.number(notes + 4) & 1U) != 0 ? bytes.number(notes + 8) : 0;
    constexpr std::int64_t vbri = 36;
    if (bytes.at(place + vbri, 4) == "VBRI")
        return bytes.number(place + vbri + 14);
    return std::nullopt;
}

bool isTag(Bytes& bytes, std::int64_t place)
{
    const std::string_view mark = bytes.at(place, 8);
    return mark.starts_with("TAG") || mark.starts_with("ID3") || mark == "APETAGEX" ||
           mark.starts_with("LYRICS");
}

} // namespace

Mp3Structure mp3Structure(FileSource& source)
{
    Mp3Structure structure;
    Bytes bytes(source);
    const std::int64_t start = behindTags(bytes);
    const auto first = findFrame(bytes, start, start + farthestStart, 0);
    if (!first)
        return structure;
    std::int64_t place = *first;
    const Frame head = *frameOf(bytes.number(place));
    if (const auto notes = notesAt(bytes, place, head))
    {
        structure.statedFrames = *notes;
        place += head.size;
    }
    while (place < bytes.end() && !isTag(bytes, place))
    {
        const auto frame = frameOf(bytes.number(place));
        if (frame && frame->kind == head.kind)
        {
            structure.isCutOff = place + frame->size > bytes.end();
            place += frame->size;
            structure.frames += structure.isCutOff ? 0 : 1;
            continue;
        }
        const auto next = findFrame(bytes, place + 1, bytes.end(), head.kind);
        if (!next)
            break; // not even the beginning of a frame
        ++structure.holes;
        place = *next;
    }
    return structure;
}

} // namespace tonwerk::app
