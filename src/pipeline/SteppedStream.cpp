// SPDX-License-Identifier: MIT
#include "pipeline/SteppedStream.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "tonwerk/StreamGeometry.h"

namespace
{

using tonwerk::geometry::channels;
using tonwerk::geometry::fftSize;
using tonwerk::geometry::hop;
using tonwerk::geometry::segmentFrames;
using tonwerk::geometry::stems;

RunGeometry checked(RunGeometry geometry)
{
    const std::string fault = geometry.fault(segmentFrames);
    if (!fault.empty())
        throw std::invalid_argument(fault);
    return geometry;
}

} // namespace

SteppedStream::SteppedStream(std::shared_ptr<IInference> inference, RunGeometry geometry)
    : geometry(checked(geometry)),
      engine(std::move(inference), channels, fftSize, hop, 0, segmentFrames, stems, geometry),
      block(FixedArray<2>::from_shape({channels, std::max(engine.readyThreshold(), geometry.step * hop)}))
{
}

SampleRows SteppedStream::feed(const SampleBlock& input, std::span<const bool> silentStems)
{
    const std::size_t count = std::min(input.samples, samplesUntilResult());
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        const float* source = input.first + channel * input.channelStride;
        float* target = block.data() + channel * block.shape(1) + gathered;
        for (std::size_t i = 0; i < count; ++i, source += input.sampleStride)
            target[i] = *source;
    }
    gathered += count;
    return gathered == blockLength() ? pass(false, silentStems) : SampleRows{};
}

SampleRows SteppedStream::finish(std::span<const bool> silentStems)
{
    return pass(true, silentStems);
}

SampleRows SteppedStream::pass(bool eof, std::span<const bool> silentStems)
{
    const std::size_t count = std::exchange(gathered, 0);
    const bool more = engine.push({block.data(), channels, count, block.shape(1), 1}, eof) > 0;
    return more ? engine.process(eof, silentStems) : SampleRows{};
}

void SteppedStream::reset()
{
    gathered = 0;
    engine.reset();
}

std::size_t SteppedStream::latency() const
{
    return geometry.latency(fftSize / hop, hop);
}
