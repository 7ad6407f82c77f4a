// SPDX-License-Identifier: MIT
#include "pipeline/ChunkProcessor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include <xtensor/xpad.hpp>

#include "common/Log.h"
#include "spectral/WindowFunctions.h"

namespace
{

constexpr const char* processName = "ChunkProcessor::process";

/// A first chunk louder than this is worth a line in the log: the host may be feeding unnormalised samples.
constexpr float loudPeak = 1.1F;

Array padTime(const Array& data, std::size_t before, std::size_t after, xt::pad_mode mode)
{
    return xt::pad(data, std::vector<std::vector<std::size_t>>{{0, 0}, {before, after}}, mode);
}

float peakMagnitude(const Array& data)
{
    float peak = 0.0F;
    for (const float sample : data)
        peak = std::max(peak, std::abs(sample));
    return peak;
}

/// The samples [first, first + count) of every row of a rank-3 array; what lies beyond its end is silence.
Array timeRange(const Array& data, std::size_t first, std::size_t count)
{
    const std::size_t length = lastExtent(data);
    const std::size_t available = std::min(count, length - std::min(first, length));
    Array result = Array::from_shape({data.shape(0), data.shape(1), count});
    float* target = result.data();
    for (std::size_t row = 0; row < data.shape(0) * data.shape(1); ++row)
    {
        target = std::copy_n(data.data() + row * length + std::min(first, length), available, target);
        target = std::fill_n(target, count - available, 0.0F);
    }
    return result;
}

/// Joins results of consecutive chunks along the time axis.
Array joinTime(const std::vector<Array>& pieces)
{
    std::size_t length = 0;
    for (const Array& piece : pieces)
        length += lastExtent(piece);
    Array joined = Array::from_shape({pieces.front().shape(0), pieces.front().shape(1), length});
    float* target = joined.data();
    for (std::size_t row = 0; row < joined.shape(0) * joined.shape(1); ++row)
        for (const Array& piece : pieces)
            target = std::copy_n(piece.data() + row * lastExtent(piece), lastExtent(piece), target);
    return joined;
}

} // namespace

ChunkProcessor::ChunkProcessor(std::shared_ptr<IInference> inference, std::size_t channels,
                               std::size_t fftSize, std::size_t hop, std::uint64_t configExtra,
                               std::size_t segmentFrames, std::size_t stemCount)
    : channels(channels), fftSize(fftSize), hop(hop), configExtra(configExtra), segmentFrames(segmentFrames),
      stemCount(stemCount), silentStems(stemCount, false), firstChunk(true), firstResult(true)
{
    const auto window = makeWindow(WindowType::Blackman, static_cast<std::int32_t>(fftSize));
    preProcessor = std::make_unique<PreProcessor>(channels, fftSize, hop, window, std::move(inference),
                                                  segmentFrames, true, stemCount);
    for (std::size_t stem = 0; stem < stemCount; ++stem)
        synthesizers.push_back(std::make_unique<OverlapAddSynthesizer>(channels, fftSize, hop, window));
    buffer = std::make_unique<BufferAggregator>(channels, 2 * readyThreshold(), 1);
}

std::size_t ChunkProcessor::readyThreshold() const
{
    return preProcessor->maxInputLength() - 2 * fftSize;
}

void ChunkProcessor::setSilentStems(std::span<const bool> silent)
{
    std::copy(silent.begin(), silent.end(), silentStems.begin());
}

const Array& ChunkProcessor::process(const Array& input, bool eof)
{
    TONWERK_LOG(debug) << "ChunkProcessor::process input shape: " << shapeText(input) << ", eof: " << eof;
    buffer->push(input);
    return processHeld(eof);
}

const Array& ChunkProcessor::process(const SampleBlock& input, bool eof)
{
    TONWERK_LOG(debug) << "ChunkProcessor::process input shape: " << channels << "x" << input.samples
                       << ", eof: " << eof;
    buffer->push(input);
    return processHeld(eof);
}

const Array& ChunkProcessor::processHeld(bool eof)
{
    if (eof)
    {
        TONWERK_LOG_AS(processName, debug) << "Processing EOF";
        return drain();
    }
    const std::size_t held = buffer->heldSamples();
    if (held == 0 || held < readyThreshold())
    {
        TONWERK_LOG_AS(processName, debug) << "Not enough data to process, returning empty";
        return nothing;
    }
    takeChunk(std::min(held, longestChunk()));
    return processChunk(0, false);
}

// The buffer can hold more than the padded last chunk may carry, so ordinary chunks come first. They are cut
// to whole hops, which loses no sample: what does not fit stays for the next one.
const Array& ChunkProcessor::drain()
{
    if (buffer->heldSamples() == 0)
        return nothing;
    std::vector<Array> pieces;
    while (buffer->heldSamples() > longestLastChunk())
    {
        const std::size_t samples = std::min(buffer->heldSamples(), longestChunk());
        takeChunk(samples - samples % hop);
        pieces.push_back(processChunk(0, false));
    }
    const std::size_t endPad = takeLastChunk();
    processChunk(endPad, true);
    if (!pieces.empty())
    {
        pieces.push_back(result);
        result = joinTime(pieces);
    }
    return result;
}

// The first chunk leaves room for the lead-in.
std::size_t ChunkProcessor::longestChunk() const
{
    return preProcessor->maxInputLength() - (firstChunk ? fftSize : 0);
}

// Later chunks need no lead-in and drop their first hop, which the previous chunk has analysed already.
std::size_t ChunkProcessor::longestLastChunk() const
{
    return firstChunk ? readyThreshold() : preProcessor->maxInputLength() - fftSize + hop;
}

void ChunkProcessor::takeChunk(std::size_t samples)
{
    reshape(chunk, std::array{channels, samples});
    buffer->take(samples, fftSize, chunk.data());
}

std::size_t ChunkProcessor::takeLastChunk()
{
    chunk = buffer->flush();
    const std::size_t length = lastExtent(chunk);
    const std::size_t endPad = (hop - length % hop) % hop;
    const std::size_t total = fftSize + endPad;
    // A mirror image reaches no further than the signal is long; the rest is silence.
    const std::size_t mirrored = std::min(length - 1, total);
    chunk = padTime(chunk, 0, mirrored, xt::pad_mode::reflect);
    if (mirrored < total)
        chunk = padTime(chunk, 0, total - mirrored, xt::pad_mode::constant);
    return endPad;
}

std::size_t ChunkProcessor::padFront()
{
    const std::size_t frontPad = std::min(lastExtent(chunk) - 1, fftSize);
    chunk = padTime(chunk, frontPad, 0, xt::pad_mode::reflect);
    firstChunk = false;
    const float peak = peakMagnitude(chunk);
    if (peak > loudPeak)
    {
        TONWERK_LOG_AS(processName, info) << "MAX2: " << peak;
    }
    return frontPad;
}

const Array& ChunkProcessor::processChunk(std::size_t endPad, bool eof)
{
    const std::size_t frontPad = firstChunk ? padFront() : 0;
    TONWERK_LOG_AS(processName, debug) << "Data prepared for preprocessing, shape: " << shapeText(chunk);
    const StemSpectra spectra = analyse(eof);
    TONWERK_LOG_AS(processName, debug) << "Preprocessed data shape: " << spectra.shapeText();
    synthesize(spectra);
    if (firstResult || eof)
        trimResult(frontPad, endPad, eof);
    firstResult = false;
    TONWERK_LOG_AS(processName, debug) << "ChunkProcessor::process result shape: " << shapeText(result);
    return result;
}

// The frame that starts with a later chunk's first sample was analysed with the previous chunk and held back,
// so its hop is dropped here and the frame comes back at the head of this chunk's frames.
StemSpectra ChunkProcessor::analyse(bool eof)
{
    return preProcessor->process(chunk, eof, firstResult ? 0 : hop);
}

void ChunkProcessor::synthesize(const StemSpectra& spectra)
{
    const std::size_t length = spectra.frameCount() * hop; // 0 if the model reported failure
    reshape(result, std::array{stemCount + 1, channels, length});
    // Stem by stem: the sums of one stem fit into the processor's cache, those of all do not.
    for (std::size_t stem = 0; stem < stemCount; ++stem)
        synthesizeStem(spectra, stem, result.data() + stem * channels * length, length);
    for (std::size_t channel = 0; channel < channels; ++channel)
        std::copy_n(chunk.data() + channel * lastExtent(chunk), std::min(length, lastExtent(chunk)),
                    result.data() + (stemCount * channels + channel) * length);
}

void ChunkProcessor::synthesizeStem(const StemSpectra& spectra, std::size_t stem, float* target,
                                    std::size_t length)
{
    OverlapAddSynthesizer& synthesizer = *synthesizers[stem];
    for (std::size_t frame = 0; frame < spectra.frameCount(); ++frame, target += hop)
    {
        if (silentStems[stem])
        {
            synthesizer.completeSilentHop(target, length);
            continue;
        }
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            spectra.packFrame(stem, channel, frame, synthesizer.inputRow());
            synthesizer.addRow(channel);
        }
        synthesizer.completeHop(target, length);
    }
}

// Cuts the lead-in and, at the end of the stream, the lead-out. The length wanted at the end is counted from
// the end of the result with the synthesizers' incomplete tail appended as silence; a negative count is
// relative to that end, which happens only if the model reported failure and there is next to nothing to
// return.
void ChunkProcessor::trimResult(std::size_t frontPad, std::size_t endPad, bool eof)
{
    const std::size_t length = lastExtent(result) - std::min(frontPad, lastExtent(result));
    if (!eof)
    {
        result = timeRange(result, frontPad, length);
        return;
    }
    const auto extended = static_cast<std::ptrdiff_t>(length + lastExtent(synthesizers.front()->tail()));
    auto wanted = extended - static_cast<std::ptrdiff_t>(fftSize + endPad);
    if (wanted < 0)
        wanted += extended;
    wanted = std::clamp<std::ptrdiff_t>(wanted, 0, extended);
    result = timeRange(result, frontPad, static_cast<std::size_t>(wanted));
}
