// SPDX-License-Identifier: MIT
#include "audio/StemWriter.h"

#include <cstddef>
#include <system_error>
#include <utility>
#include <vector>

#include "system/BinaryFile.h"
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

StemWriter::StemWriter(std::filesystem::path finalPath, unsigned channels, unsigned sampleRate)
    : finalLocation(std::move(finalPath)), location(withEnding(finalLocation, ".part")),
      channelCount(channels), rate(sampleRate),
      file(std::make_unique<WavFile>(location, SampleFormat::Float32, channels, sampleRate))
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
    file->write(samples.data(), samples.size() / channelCount);
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
        BinaryFile floats(location, FileMode::Read);
        floats.seek(static_cast<std::int64_t>(WavFile::headerBytes), SEEK_SET);
        converted = withEnding(location, ".fixed");
        file = std::make_unique<WavFile>(converted, format, channelCount, rate);
        while (const std::size_t bytes = floats.read(samples.data(), samples.size() * sizeof(float)))
        {
            const std::span<const float> read(samples.data(), bytes / sizeof(float));
            file->write(encoder.encode(read).data(), read.size() / channelCount);
        }
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
