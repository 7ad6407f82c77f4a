// SPDX-License-Identifier: MIT
#include "audio/WavFile.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

int encodingOf(SampleFormat format)
{
    switch (format)
    {
    case SampleFormat::Pcm16:
        return SF_FORMAT_PCM_16;
    case SampleFormat::Pcm24:
        return SF_FORMAT_PCM_24;
    case SampleFormat::Float32:
        break;
    }
    return SF_FORMAT_FLOAT;
}

unsigned bytesOf(SampleFormat format)
{
    return format == SampleFormat::Float32 ? 4 : format == SampleFormat::Pcm24 ? 3 : 2;
}

/// The sizes in a WAV header are 32-bit numbers.
constexpr std::int64_t longestWav = std::numeric_limits<std::uint32_t>::max();

/// Lengths are expected this precisely, or better.
bool mayExceedWav(std::uint64_t frames, unsigned frameBytes)
{
    constexpr std::uint64_t safe = longestWav / 10 * 8;
    return frames == 0 || frames > safe / frameBytes;
}

} // namespace

WavFile::WavFile(std::filesystem::path path, SampleFormat format, unsigned channels, unsigned sampleRate,
                 std::uint64_t expectedFrames)
    : location(std::move(path)), file(location, FileMode::Create),
      mayBeLarge(mayExceedWav(expectedFrames, channels * bytesOf(format)))
{
    SF_INFO info{};
    info.channels = static_cast<int>(channels);
    info.samplerate = static_cast<int>(sampleRate);
    info.format = (mayBeLarge ? SF_FORMAT_RF64 : SF_FORMAT_WAV) | encodingOf(format);
    SF_VIRTUAL_IO calls = callbacks();
    encoder.reset(sf_open_virtual(&calls, SFM_WRITE, &info, this));
    if (!encoder)
        throw Failure("Cannot write " + quoted(location) + ": " + asReason(sf_strerror(nullptr)) + ".");
    // The chunk of peaks holds the time of day, so that no two files would be the same.
    sf_command(encoder.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    if (mayBeLarge)
        sf_command(encoder.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    sf_command(encoder.get(), SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
}

/// libsndfile opens no file itself, so that every name works on every system.
SF_VIRTUAL_IO WavFile::callbacks()
{
    SF_VIRTUAL_IO calls{};
    calls.get_filelen = [](void* user) -> sf_count_t { return static_cast<WavFile*>(user)->length; };
    calls.tell = [](void* user) -> sf_count_t { return static_cast<WavFile*>(user)->position; };
    calls.seek = [](sf_count_t offset, int origin, void* user) -> sf_count_t
    {
        WavFile& wav = *static_cast<WavFile*>(user);
        const std::int64_t from = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? wav.position : wav.length;
        if (!wav.file.seek(from + offset, SEEK_SET))
            return -1;
        return wav.position = from + offset;
    };
    calls.write = [](const void* bytes, sf_count_t count, void* user) -> sf_count_t
    {
        WavFile& wav = *static_cast<WavFile*>(user);
        const std::size_t done = wav.file.write(bytes, static_cast<std::size_t>(count));
        wav.position += static_cast<std::int64_t>(done);
        wav.length = std::max(wav.length, wav.position);
        return static_cast<sf_count_t>(done);
    };
    calls.read = [](void*, sf_count_t, void*) -> sf_count_t { return 0; };
    return calls;
}

void WavFile::write(std::span<const float> samples)
{
    finishBlock(sf_write_float(encoder.get(), samples.data(), static_cast<sf_count_t>(samples.size())),
                samples.size());
}

void WavFile::write(std::span<const std::int32_t> samples)
{
    finishBlock(sf_write_int(encoder.get(), samples.data(), static_cast<sf_count_t>(samples.size())),
                samples.size());
}

void WavFile::finishBlock(sf_count_t written, std::size_t wanted)
{
    file.flush();
    if (!mayBeLarge && length > longestWav)
        throw Failure(
            "The stems are longer than the song promised, too long for WAV files, which hold 4 GB.");
    if (written != static_cast<sf_count_t>(wanted))
        throw Failure("Cannot write " + quoted(location) + ": " + asReason(sf_strerror(encoder.get())) + ".");
}

void WavFile::close()
{
    encoder.reset();
    file.close();
}

} // namespace tonwerk::app
