// SPDX-License-Identifier: MIT
#include "audio/SndfileDecoder.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>

namespace tonwerk::app
{

namespace
{

FileSource& sourceOf(void* user)
{
    return *static_cast<FileSource*>(user);
}

SF_VIRTUAL_IO callbacks()
{
    SF_VIRTUAL_IO calls{};
    calls.get_filelen = [](void* user) -> sf_count_t { return sourceOf(user).size(); };
    calls.seek = [](sf_count_t offset, int origin, void* user) -> sf_count_t
    { return sourceOf(user).seek(offset, origin); };
    calls.read = [](void* bytes, sf_count_t count, void* user) -> sf_count_t
    {
        return count <= 0
                   ? 0
                   : static_cast<sf_count_t>(sourceOf(user).read(bytes, static_cast<std::size_t>(count)));
    };
    calls.tell = [](void* user) -> sf_count_t { return sourceOf(user).position(); };
    return calls;
}

/// Bytes of a sample, 0 for encodings whose samples have no fixed size.
unsigned sampleBytes(int format)
{
    switch (format & SF_FORMAT_SUBMASK)
    {
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
        return 1;
    case SF_FORMAT_PCM_16:
        return 2;
    case SF_FORMAT_PCM_24:
        return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
        return 4;
    case SF_FORMAT_DOUBLE:
        return 8;
    default:
        return 0;
    }
}

SF_CHUNK_INFO chunkNamed(const char* name)
{
    SF_CHUNK_INFO chunk{};
    chunk.id_size = static_cast<unsigned>(std::strlen(name));
    std::memcpy(chunk.id, name, chunk.id_size);
    return chunk;
}

} // namespace

std::unique_ptr<SndfileDecoder> SndfileDecoder::open(FileSource& source)
{
    std::unique_ptr<SndfileDecoder> decoder(new SndfileDecoder(source));
    return decoder->file ? std::move(decoder) : nullptr;
}

SndfileDecoder::SndfileDecoder(FileSource& source)
{
    source.seek(0, SEEK_SET);
    SF_VIRTUAL_IO calls = callbacks();
    file.reset(sf_open_virtual(&calls, SFM_READ, &info, &source));
    if (file && !hasPossibleFloats())
        file.reset();
    if (file)
        stated = std::max(framesInHeader(),
                          info.frames == SF_COUNT_MAX ? 0 : static_cast<std::uint64_t>(info.frames));
}

std::size_t SndfileDecoder::read(float* interleaved, std::size_t frames)
{
    const sf_count_t count = sf_readf_float(file.get(), interleaved, static_cast<sf_count_t>(frames));
    return count < 0 ? 0 : static_cast<std::size_t>(count);
}

std::optional<SampleFormat> SndfileDecoder::wavFormat() const
{
    if (!isWav())
        return std::nullopt;
    switch (info.format & SF_FORMAT_SUBMASK)
    {
    case SF_FORMAT_FLOAT:
        return SampleFormat::Float32;
    case SF_FORMAT_PCM_24:
        return SampleFormat::Pcm24;
    case SF_FORMAT_PCM_16:
        return SampleFormat::Pcm16;
    default:
        return std::nullopt;
    }
}

/// libsndfile reads floating-point samples of 16 bits, of which there are none, as if they had 32.
bool SndfileDecoder::hasPossibleFloats() const
{
    const int encoding = info.format & SF_FORMAT_SUBMASK;
    if (!isWav() || (encoding != SF_FORMAT_FLOAT && encoding != SF_FORMAT_DOUBLE))
        return true;
    constexpr unsigned placeOfBits = 14;
    SF_CHUNK_INFO chunk = chunkNamed("fmt ");
    std::array<unsigned char, placeOfBits + 2> format{};
    const SF_CHUNK_ITERATOR* const place = sf_get_chunk_iterator(file.get(), &chunk);
    if (place == nullptr || sf_get_chunk_size(place, &chunk) != SF_ERR_NO_ERROR ||
        chunk.datalen < format.size())
        return false;
    chunk.data = format.data();
    chunk.datalen = format.size();
    if (sf_get_chunk_data(place, &chunk) != SF_ERR_NO_ERROR)
        return false;
    const unsigned bits = format[placeOfBits] + 256U * format[placeOfBits + 1];
    return bits == 8 * sampleBytes(info.format);
}

bool SndfileDecoder::isWav() const
{
    const int container = info.format & SF_FORMAT_TYPEMASK;
    return container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX || container == SF_FORMAT_RF64;
}

/// libsndfile shortens the length of a WAV file to what is there; its header tells that it has been cut off.
std::uint64_t SndfileDecoder::framesInHeader() const
{
    const std::uint64_t frameBytes = static_cast<std::uint64_t>(sampleBytes(info.format)) * channels();
    return frameBytes == 0 ? 0 : dataBytesInHeader() / frameBytes;
}

std::uint64_t SndfileDecoder::dataBytesInHeader() const
{
    if (!isWav())
        return 0;
    const bool isRf64 = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64;
    SF_CHUNK_INFO chunk = chunkNamed(isRf64 ? "ds64" : "data");
    const SF_CHUNK_ITERATOR* const place = sf_get_chunk_iterator(file.get(), &chunk);
    if (place == nullptr || sf_get_chunk_size(place, &chunk) != SF_ERR_NO_ERROR)
        return 0;
    if (!isRf64) // a WAV that was written into a pipe has no length
        return chunk.datalen == std::numeric_limits<std::uint32_t>::max() ? 0 : chunk.datalen;
    // The size of the file, then that of the samples. Asked for an empty chunk's data, libsndfile divides by
    // zero.
    std::array<std::uint64_t, 2> sizes{};
    if (chunk.datalen < sizeof sizes)
        return 0;
    chunk.data = sizes.data();
    chunk.datalen = sizeof sizes;
    return sf_get_chunk_data(place, &chunk) == SF_ERR_NO_ERROR ? sizes[1] : 0;
}

} // namespace tonwerk::app
