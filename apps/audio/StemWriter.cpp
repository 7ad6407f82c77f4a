// SPDX-License-Identifier: MIT
#include "audio/StemWriter.h"

#include <cstddef>
#include <system_error>
#include <utility>
#include <vector>

#include "audio/FileSource.h"
#include "audio/SndfileDecoder.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

std::filesystem::path withEnding(std::filesystem::path path, const char* ending)
{
    return path += ending;
}

} // namespace

StemWriter::StemWriter(std::filesystem::path finalPath, unsigned channels, unsigned sampleRate,
                       std::uint64_t expectedFrames)
    : finalLocation(std::move(finalPath)), location(withEnding(finalLocation, ".part")),
      channelCount(channels), rate(sampleRate),
      file(std::make_unique<WavFile>(location, SampleFormat::Float32, channels, sampleRate, expectedFrames))
{
}

StemWriter::~StemWriter()
{
    if (committed)
        return;
    // Windows removes no open file.
    if (file)
        file->discard();
    std::error_code ignored;
    std::filesystem::remove(location, ignored);
    if (!converted.empty())
        std::filesystem::remove(converted, ignored);
}

void StemWriter::write(std::span<const float> samples)
{
    file->write(samples);
}

void StemWriter::finish(SampleFormat format, double gain)
{
    file->close();
    if (format != SampleFormat::Float32)
        convert(format, gain);
}

void StemWriter::convert(SampleFormat format, double gain)
{
    constexpr std::size_t framesAtOnce = 65536;
    std::vector<float> samples(framesAtOnce * channelCount);
    PcmEncoder encoder(format, gain);
    {
        FileSource floats(location);
        const std::unique_ptr<SndfileDecoder> decoder = SndfileDecoder::open(floats);
        floats.requireGood();
        if (!decoder)
            throw Failure("Cannot read " + quoted(location) + ".");
        converted = withEnding(location, ".fixed");
        file = std::make_unique<WavFile>(converted, format, channelCount, rate, decoder->statedFrames());
        while (const std::size_t frames = decoder->read(samples.data(), framesAtOnce))
            file->write(encoder.encode(std::span(samples).first(frames * channelCount)));
        floats.requireGood();
        file->close();
    }
    std::error_code failure;
    std::filesystem::remove(location, failure);
    std::swap(location, converted);
}

void StemWriter::commit()
{
    std::error_code failure;
    std::filesystem::rename(location, finalLocation, failure);
    if (failure)
        throw Failure("Cannot rename " + quoted(location) + " to " + quoted(finalLocation) + ": " +
                      asReason(failure.message()) + ".");
    committed = true;
}

} // namespace tonwerk::app
