// SPDX-License-Identifier: MIT
#include "audio/SongReader.h"

#include <algorithm>
#include <system_error>

#include "audio/Mp3Decoder.h"
#include "audio/OggStructure.h"
#include "audio/SndfileDecoder.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

const std::filesystem::path& checked(const std::filesystem::path& path)
{
    std::error_code failure;
    const auto status = std::filesystem::status(path, failure);
    if (!std::filesystem::exists(status))
        throw Failure("The song " + quoted(path) + " does not exist.");
    if (std::filesystem::is_directory(status))
        throw Failure("The song " + quoted(path) + " is a folder.");
    if (!std::filesystem::is_regular_file(status))
        throw Failure("The song " + quoted(path) +
                      " is no file; sound from a pipe comes through standard input (--help tells more).");
    return path;
}

} // namespace

SongReader::SongReader(const std::filesystem::path& path)
    : location(checked(path)), source(path), decoder(openDecoder())
{
    checkFormat();
    channelCount = decoder->channels();
    rate = decoder->sampleRate();
    stated = decoder->statedFrames();
    expected = decoder->expectedFrames();
}

std::unique_ptr<Decoder> SongReader::openDecoder()
{
    if (source.size() == 0)
        throw Failure("The song " + quoted(location) + " is an empty file.");
    const OggStructure ogg = oggStructure(source);
    source.requireGood();
    if (ogg == OggStructure::Broken)
        throw Failure("The song " + quoted(location) +
                      " is damaged or cut off: pages of its Ogg streams are not whole or are missing.");
    if (ogg == OggStructure::Chained)
        throw Failure("The song " + quoted(location) +
                      " holds several Ogg streams one after the other, of which only one could be read.");
    std::unique_ptr<Decoder> found = SndfileDecoder::open(source);
    // MP3 stands last because it has no signature, only frames that look alike.
    if (!found)
    {
        noteFaults(mp3Structure(source));
        found = Mp3Decoder::open(source);
    }
    source.requireGood();
    if (!found)
        throw Failure("The song " + quoted(location) + " is not a readable WAV, FLAC, MP3 or OGG file.");
    return found;
}

/// Players play such files, and many of them are about: they are separated as far as they go.
void SongReader::noteFaults(const Mp3Structure& structure)
{
    const std::string song = "The song " + quoted(location);
    if (structure.statedFrames > structure.frames + 1)
        faults.push_back(song + " is damaged or cut off: its header states " +
                         std::to_string(structure.statedFrames) + " frames of MP3, but only " +
                         std::to_string(structure.frames) + " are there.");
    if (structure.isCutOff)
        faults.push_back(song + " is cut off: its last frame of MP3 is not whole.");
    if (structure.holes > 0)
        faults.push_back(song + " is damaged: what follows a frame of MP3 is none at " +
                         std::to_string(structure.holes) + (structure.holes == 1 ? " place." : " places."));
}

void SongReader::checkFormat() const
{
    if (decoder->channels() > 2)
        throw Failure("The song " + quoted(location) + " has " + std::to_string(decoder->channels()) +
                      " channels, but only mono and stereo can be separated.");
    if (decoder->sampleRate() < lowestSampleRate || decoder->sampleRate() > highestSampleRate)
        throw Failure("The song " + quoted(location) + " has a sample rate of " +
                      std::to_string(decoder->sampleRate()) + " Hz, but only rates from " +
                      std::to_string(lowestSampleRate) + " to " + std::to_string(highestSampleRate) +
                      " Hz can be separated.");
}

void SongReader::read(std::size_t frames, std::vector<float>& stereo)
{
    stereo.resize(2 * frames);
    const std::size_t count = decoder->read(stereo.data(), frames);
    if (channelCount == 1)
    {
        // From the end, so that no sample is overwritten before it has been copied.
        for (std::size_t frame = count; frame-- > 0;)
            stereo[2 * frame] = stereo[2 * frame + 1] = stereo[frame];
    }
    stereo.resize(2 * count);
    framesSoFar += count;
    if (count < frames)
        checkEnd();
}

void SongReader::checkEnd() const
{
    source.requireGood();
    if (framesSoFar < stated)
        throw Failure("The song " + quoted(location) + " is damaged or cut off: its header states " +
                      std::to_string(stated) + " samples per channel, but only " +
                      std::to_string(framesSoFar) + " can be read.");
    if (framesSoFar == 0)
        throw Failure("The song " + quoted(location) + " holds no sound.");
}

double SongReader::fractionRead() const
{
    const auto done =
        static_cast<double>(stated > 0 ? framesSoFar : static_cast<std::uint64_t>(source.position()));
    const auto whole = static_cast<double>(stated > 0 ? stated : static_cast<std::uint64_t>(source.size()));
    return std::min(1.0, done / whole);
}

std::string SongReader::sha256()
{
    return source.sha256();
}

} // namespace tonwerk::app
