// SPDX-License-Identifier: MIT
#include "audio/SongReader.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <system_error>

#include <miniaudio.h>

#include "audio/OggPages.h"
#include "system/BinaryFile.h"
#include "system/Failure.h"
#include "system/Sha256.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// The formats in the order in which they are tried. MP3 stands last because it has no signature: its decoder
/// searches the whole file for something that looks like a frame, and finds it in many a large file of other
/// kind.
constexpr std::array formats{ma_encoding_format_wav, ma_encoding_format_flac, ma_encoding_format_vorbis,
                             ma_encoding_format_mp3};

/// A decoder that has read on to here for its first frame has not found the beginning of an MP3.
constexpr std::int64_t farIntoMp3 = 65536;

std::uint64_t sizeOfSong(const std::filesystem::path& path)
{
    std::error_code failure;
    const auto status = std::filesystem::status(path, failure);
    if (!std::filesystem::exists(status))
        throw Failure("The song " + quoted(path) + " does not exist.");
    if (std::filesystem::is_directory(status))
        throw Failure("The song " + quoted(path) + " is a folder.");
    const std::uintmax_t size = std::filesystem::file_size(path, failure);
    if (failure)
        throw Failure("The song " + quoted(path) + " cannot be read: " + asReason(failure.message()) + ".");
    if (size == 0)
        throw Failure("The song " + quoted(path) + " is an empty file.");
    return size;
}

} // namespace

/// The file under the decoder.
struct SongReader::Source
{
    BinaryFile file;
    std::uint64_t size;
    std::int64_t position = 0;

    void rewind()
    {
        file.seek(0, SEEK_SET);
        position = 0;
    }

    bool beginsWith(std::string_view mark)
    {
        std::string start(mark.size(), '\0');
        rewind();
        return file.read(start.data(), start.size()) == mark.size() && start == mark;
    }

    static ma_result read(ma_decoder* open, void* bytes, size_t size, size_t* bytesRead)
    {
        Source& source = *static_cast<Source*>(open->pUserData);
        *bytesRead = source.file.read(bytes, size);
        source.position += static_cast<std::int64_t>(*bytesRead);
        return *bytesRead == 0 && size > 0 ? MA_AT_END : MA_SUCCESS;
    }

    /// Whether this is a WAV file of unsigned 8-bit samples.
    bool hasEightBits()
    {
        ma_decoder_config asStored = ma_decoder_config_init(ma_format_unknown, 0, 0);
        asStored.encodingFormat = ma_encoding_format_wav;
        ma_decoder probe;
        rewind();
        if (ma_decoder_init(Source::read, Source::seek, this, &asStored, &probe) != MA_SUCCESS)
            return false;
        const bool eight = probe.outputFormat == ma_format_u8;
        ma_decoder_uninit(&probe);
        return eight;
    }

    static ma_result seek(ma_decoder* open, ma_int64 offset, ma_seek_origin origin)
    {
        Source& source = *static_cast<Source*>(open->pUserData);
        const bool relative = origin == ma_seek_origin_current;
        if (!source.file.seek(offset, relative ? SEEK_CUR : SEEK_SET))
            return MA_BAD_SEEK;
        source.position = (relative ? source.position : 0) + offset;
        return MA_SUCCESS;
    }
};

void SongReader::DecoderCloser::operator()(ma_decoder* open) const
{
    ma_decoder_uninit(open);
    delete open;
}

SongReader::SongReader(const std::filesystem::path& path) : location(path)
{
    const std::uint64_t size = sizeOfSong(path);
    source = std::make_unique<Source>(Source{BinaryFile(path, FileMode::Read), size});
    openDecoder();
    checkFormat();
}

SongReader::~SongReader() = default;

void SongReader::openDecoder()
{
    if (source->beginsWith("OggS") && !oggPagesAreIntact(source->file))
        throw Failure("The song " + quoted(location) +
                      " is damaged or cut off: not all of its Ogg pages are whole.");
    eightBits = source->hasEightBits();
    const bool lengthIsOpen = source->beginsWith("RIFF\xFF\xFF\xFF\xFF"); // written into a pipe
    const bool tagged = source->beginsWith("ID3"); // a tag can be long: it may hold a picture
    // Channels and rate as they are in the file, but float samples.
    ma_decoder_config config = ma_decoder_config_init(ma_format_f32, 0, 0);
    for (const ma_encoding_format format : formats)
    {
        config.encodingFormat = format;
        source->rewind();
        auto opened = std::make_unique<ma_decoder>();
        if (ma_decoder_init(Source::read, Source::seek, source.get(), &config, opened.get()) != MA_SUCCESS)
            continue;
        decoder.reset(opened.release());
        if (format == ma_encoding_format_mp3 && !tagged && source->position > farIntoMp3)
            break;
        // The length of an MP3 would have to be counted by decoding it; OGG has none.
        ma_uint64 length = 0;
        if ((format == ma_encoding_format_wav || format == ma_encoding_format_flac) && !lengthIsOpen &&
            ma_decoder_get_length_in_pcm_frames(decoder.get(), &length) == MA_SUCCESS)
            stated = length;
        return;
    }
    decoder.reset();
    source->file.requireGood();
    throw Failure("The song " + quoted(location) + " is not a readable WAV, FLAC, MP3 or OGG file.");
}

void SongReader::checkFormat()
{
    channelCount = decoder->outputChannels;
    rate = decoder->outputSampleRate;
    if (channelCount > 2)
        throw Failure("The song " + quoted(location) + " has " + std::to_string(channelCount) +
                      " channels, but only mono and stereo can be separated.");
    if (rate < lowestSampleRate || rate > highestSampleRate)
        throw Failure("The song " + quoted(location) + " has a sample rate of " + std::to_string(rate) +
                      " Hz, but only rates from " + std::to_string(lowestSampleRate) + " to " +
                      std::to_string(highestSampleRate) + " Hz can be separated.");
}

void SongReader::read(std::size_t frames, std::vector<float>& stereo)
{
    stereo.resize(2 * frames);
    const std::size_t count = decode(stereo.data(), frames);
    if (eightBits) // the decoder's zero lies half a step beside silence, which is 128
        for (float& sample : stereo)
            sample = (sample * 255.0F - 1.0F) / 256.0F;
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

std::size_t SongReader::decode(float* interleaved, std::size_t frames)
{
    std::size_t total = 0;
    while (total < frames)
    {
        ma_uint64 count = 0;
        const ma_result result = ma_decoder_read_pcm_frames(decoder.get(), interleaved + total * channelCount,
                                                            frames - total, &count);
        total += static_cast<std::size_t>(count);
        if (result != MA_SUCCESS || count == 0)
            break;
    }
    return total;
}

void SongReader::checkEnd() const
{
    source->file.requireGood();
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
        static_cast<double>(stated > 0 ? framesSoFar : static_cast<std::uint64_t>(source->position));
    const auto whole = static_cast<double>(stated > 0 ? stated : source->size);
    return std::min(1.0, done / whole);
}

std::string SongReader::sha256()
{
    return sha256OfFile(location);
}

} // namespace tonwerk::app
