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

StemWriter::StemWriter(std::filesystem::path path, unsigned channels, unsigned sampleRate,
                       std::uint64_t expectedFrames)
    : location(std::move(path)), channelCount(channels), rate(sampleRate),
      file(std::make_unique<WavFile>(location, SampleFormat::Float32, channels, sampleRate, expectedFrames))
{
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
    std::filesystem::path converted = location;
    converted += ".fixed";
    {
        FileSource floats(location);
        const std::unique_ptr<SndfileDecoder> decoder = SndfileDecoder::open(floats);
        floats.requireGood();
        if (!decoder)
            throw Failure("Cannot read " + quoted(location) + ".");
        file = std::make_unique<WavFile>(converted, format, channelCount, rate, decoder->statedFrames());
        while (const std::size_t frames = decoder->read(samples.data(), framesAtOnce))
            file->write(encoder.encode(std::span(samples).first(frames * channelCount)));
        floats.requireGood();
        file->close();
    }
    std::error_code failure;
    std::filesystem::rename(converted, location, failure);
    if (failure)
        throw Failure("Cannot rename " + quoted(converted) + " to " + quoted(location) + ": " +
                      asReason(failure.message()) + ".");
}

} // namespace tonwerk::app
