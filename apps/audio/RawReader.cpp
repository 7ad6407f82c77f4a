// SPDX-License-Identifier: MIT
#include "audio/RawReader.h"

#include <array>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>

#include "system/Failure.h"
#include "system/Files.h"
#include "system/Interrupts.h"

namespace tonwerk::app
{

namespace
{

bool startsWith(std::string_view bytes, std::string_view magic, std::size_t offset = 0)
{
    return bytes.size() >= offset + magic.size() && bytes.substr(offset, magic.size()) == magic;
}

/// Whether the bytes are the header of an MPEG audio frame: eleven ones, and no field with a forbidden value.
/// As a sample they are far beyond full scale then, or next to nothing; what may be sound is none.
bool isMpegFrame(std::string_view bytes)
{
    float sample = 0.0F;
    if (bytes.size() < sizeof sample)
        return false;
    std::memcpy(&sample, bytes.data(), sizeof sample);
    if (std::abs(sample) > 1e-20F && std::abs(sample) < 1e4F)
        return false;
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    return byte(0) == 0xFF && (byte(1) & 0xE0U) == 0xE0U && (byte(1) & 0x18U) != 0x08U &&
           (byte(1) & 0x06U) != 0U && (byte(2) & 0xF0U) != 0xF0U && (byte(2) & 0x0CU) != 0x0CU;
}

/// What kind of file begins with these bytes; nullptr if they are samples.
const char* formatOf(std::string_view bytes)
{
    if ((startsWith(bytes, "RIFF") || startsWith(bytes, "RF64")) && startsWith(bytes, "WAVE", 8))
        return "WAV";
    constexpr std::array<std::pair<std::string_view, const char*>, 7> kinds{{{"riff\x2E\x91\xCF\x11", "W64"},
                                                                             {"fLaC", "FLAC"},
                                                                             {"OggS", "OGG"},
                                                                             {"FORM", "AIFF"},
                                                                             {"caff", "CAF"},
                                                                             {"ID3\3", "MP3"},
                                                                             {"ID3\4", "MP3"}}};
    for (const auto& [magic, kind] : kinds)
        if (startsWith(bytes, magic))
            return kind;
    if (startsWith(bytes, "ftyp", 4))
        return "MP4";
    return isMpegFrame(bytes) ? "MP3" : nullptr;
}

} // namespace

RawReader::RawReader(std::FILE* stream, unsigned sampleRate, bool sniffs) : input(stream), sniffs(sniffs)
{
    makeBinary(stream);
    channelCount = 2;
    rate = sampleRate;
}

/// \throws Failure if the first bytes belong to a file with a header
void RawReader::requireSamples(std::string_view bytes) const
{
    const char* const format = sniffs ? formatOf(bytes) : nullptr;
    if (format != nullptr)
        throw Failure(std::string("Standard input holds ") +
                      (std::strchr("AMO", format[0]) != nullptr ? "an " : "a ") + format +
                      " file, not samples: give the file's name instead of -, or convert it on the way, as "
                      "ffmpeg -i - -f f32le -ac 2 -ar 44100 - does. --input-format raw takes it for samples "
                      "all the same.");
}

void RawReader::read(std::size_t frames, std::vector<float>& stereo)
{
    constexpr std::size_t frameSize = 2 * sizeof(float);
    stereo.resize(2 * frames);
    const std::size_t bytes = std::fread(stereo.data(), 1, frames * frameSize, input);
    if (interruptRequested())
        throw Interrupted();
    if (std::ferror(input) != 0)
        throw Failure("Standard input cannot be read.");
    if (framesSoFar == 0)
        requireSamples({reinterpret_cast<const char*>(stereo.data()), bytes});
    if (bytes % frameSize != 0)
        throw Failure("Standard input is cut off: it ends within a frame of two 32-bit samples.");
    hash.feed(stereo.data(), bytes);
    stereo.resize(2 * (bytes / frameSize));
    framesSoFar += bytes / frameSize;
    if (framesSoFar == 0)
        throw Failure("Standard input holds no sound.");
}

} // namespace tonwerk::app
