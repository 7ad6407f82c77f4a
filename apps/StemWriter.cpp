#include "StemWriter.h"

#include <cstdio>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

#include <miniaudio.h>

#include "Failure.h"
#include "Text.h"

namespace tonwerk::app
{

namespace
{

std::filesystem::path temporaryName(std::filesystem::path finalName)
{
    return finalName += ".part";
}

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

} // namespace

void StemWriter::EncoderCloser::operator()(ma_encoder* open) const
{
    ma_encoder_uninit(open);
    delete open;
}

StemWriter::StemWriter(std::filesystem::path finalPath, unsigned channels, unsigned sampleRate)
    : finalLocation(std::move(finalPath)), location(temporaryName(finalLocation)), channelCount(channels),
      file(location, platform::FileMode::write)
{
    const auto config = ma_encoder_config_init(ma_encoding_format_wav, ma_format_f32, channels, sampleRate);
    auto opened = std::make_unique<ma_encoder>();
    if (ma_encoder_init(writeBytes, seekByte, &file, &config, opened.get()) != MA_SUCCESS)
        throw Failure("Cannot write " + quoted(location) + ".");
    encoder.reset(opened.release());
}

StemWriter::~StemWriter()
{
    if (kept)
        return;
    // Windows removes no open file.
    encoder.reset();
    file.abandon();
    std::error_code ignored;
    std::filesystem::remove(location, ignored);
}

std::uint64_t StemWriter::maxFrames(unsigned channels)
{
    constexpr std::uint64_t headerBytes = 44;
    return (std::numeric_limits<std::uint32_t>::max() - headerBytes) / (sizeof(float) * channels);
}

void StemWriter::write(std::span<const float> stereo)
{
    const std::span<const float> samples = inFileChannels(stereo);
    const std::uint64_t frames = samples.size() / channelCount;
    if (framesWritten + frames > maxFrames(channelCount))
        throw Failure("The stems are too long for WAV files, which cannot exceed 4 GB.");
    ma_uint64 count = 0;
    const ma_result result = ma_encoder_write_pcm_frames(encoder.get(), samples.data(), frames, &count);
    file.flush();
    if (result != MA_SUCCESS || count != frames)
        throw Failure("Cannot write " + quoted(location) + ".");
    framesWritten += frames;
}

std::span<const float> StemWriter::inFileChannels(std::span<const float> stereo)
{
    if (channelCount == 2)
        return stereo;
    mono.resize(stereo.size() / 2);
    for (std::size_t frame = 0; frame < mono.size(); ++frame)
        mono[frame] = 0.5F * stereo[2 * frame] + 0.5F * stereo[2 * frame + 1];
    return mono;
}

void StemWriter::finish()
{
    encoder.reset();
    file.close();
}

void StemWriter::keep()
{
    std::error_code failure;
    std::filesystem::rename(location, finalLocation, failure);
    if (failure)
        throw Failure("Cannot rename " + quoted(location) + " to " + quoted(finalLocation) + ": " +
                      asReason(failure.message()) + ".");
    kept = true;
}

} // namespace tonwerk::app
