// SPDX-License-Identifier: MIT
#include "audio/WavFile.h"

#include <array>
#include <cstdio>
#include <limits>
#include <utility>

#include <miniaudio.h>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

ma_result writeBytes(ma_encoder* open, const void* bytes, size_t size, size_t* bytesWritten)
{
    *bytesWritten = static_cast<BinaryFile*>(open->pUserData)->write(bytes, size);
    return *bytesWritten == size ? MA_SUCCESS : MA_IO_ERROR;
}

ma_result seekByte(ma_encoder* open, ma_int64 offset, ma_seek_origin origin)
{
    const int from = origin == ma_seek_origin_current ? SEEK_CUR : SEEK_SET;
    return static_cast<BinaryFile*>(open->pUserData)->seek(offset, from) ? MA_SUCCESS : MA_BAD_SEEK;
}

ma_format encoded(SampleFormat format)
{
    switch (format)
    {
    case SampleFormat::Pcm16:
        return ma_format_s16;
    case SampleFormat::Pcm24:
        return ma_format_s24;
    case SampleFormat::Float32:
        break;
    }
    return ma_format_f32;
}

std::uint64_t frameBytes(SampleFormat format, unsigned channels)
{
    return ma_get_bytes_per_frame(encoded(format), channels);
}

} // namespace

void WavFile::EncoderCloser::operator()(ma_encoder* open) const
{
    ma_encoder_uninit(open);
    delete open;
}

WavFile::WavFile(std::filesystem::path path, SampleFormat format, unsigned channels, unsigned sampleRate)
    : location(std::move(path)), sampleFormat(format), channelCount(channels), file(location, FileMode::Write)
{
    const auto config = ma_encoder_config_init(ma_encoding_format_wav, encoded(format), channels, sampleRate);
    auto opened = std::make_unique<ma_encoder>();
    if (ma_encoder_init(writeBytes, seekByte, &file, &config, opened.get()) != MA_SUCCESS)
        throw Failure("Cannot write " + quoted(location) + ".");
    encoder.reset(opened.release());
}

std::uint64_t WavFile::maxFrames(SampleFormat format, unsigned channels)
{
    return (std::numeric_limits<std::uint32_t>::max() - headerBytes) / frameBytes(format, channels);
}

void WavFile::write(const void* samples, std::uint64_t frames)
{
    if (framesWritten + frames > maxFrames(sampleFormat, channelCount))
        throw Failure("The stems are too long for WAV files, which cannot exceed 4 GB.");
    ma_uint64 count = 0;
    const ma_result result = ma_encoder_write_pcm_frames(encoder.get(), samples, frames, &count);
    file.requireGood();
    if (result != MA_SUCCESS || count != frames)
        throw Failure("Cannot write " + quoted(location) + ".");
    framesWritten += frames;
    noteLength();
    file.flush();
}

/// The encoder does this too, but only when it closes the file.
void WavFile::noteLength()
{
    constexpr std::int64_t riffSizeOffset = 4;
    constexpr std::int64_t dataSizeOffset = 40;
    const std::uint64_t bytes = framesWritten * frameBytes(sampleFormat, channelCount);
    writeNumber(riffSizeOffset, headerBytes - 8 + bytes);
    writeNumber(dataSizeOffset, bytes);
    file.seek(0, SEEK_END);
}

void WavFile::writeNumber(std::int64_t offset, std::uint64_t number)
{
    std::array<std::uint8_t, 4> bytes{};
    for (std::size_t byte = 0; byte < bytes.size(); ++byte)
        bytes.at(byte) = static_cast<std::uint8_t>(number >> (8 * byte));
    file.seek(offset, SEEK_SET);
    file.write(bytes.data(), bytes.size());
}

void WavFile::close()
{
    encoder.reset();
    file.close();
}

void WavFile::discard()
{
    encoder.reset();
    file.discard();
}

} // namespace tonwerk::app
