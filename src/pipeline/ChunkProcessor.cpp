// SPDX-License-Identifier: MIT
#include "pipeline/ChunkProcessor.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "common/Log.h"
#include "spectral/WindowFunctions.h"

namespace
{

constexpr const char* processName = "ChunkProcessor::process";

/// A first chunk louder than this is worth a line in the log: the host may be feeding unnormalised samples.
constexpr float loudPeak = 1.1F;

/// Puts the mirror image of the samples [first, last) around them, without repeating the outermost ones. The
/// image behind them comes first, so that the one before them shows that as well if they are few; where it
/// reaches no further, because it is as long as what it mirrors, silence follows.
void mirrorAround(float* first, float* last, std::size_t before, std::size_t after)
{
    const auto length = static_cast<std::size_t>(last - first);
    const auto image = static_cast<std::ptrdiff_t>(std::min(length - 1, after));
    float* end = std::reverse_copy(last - 1 - image, last - 1, last);
    std::fill(end, last + after, 0.0F);
    std::reverse_copy(first + 1, first + 1 + before, first - before);
}

float peakMagnitude(const SampleRows& rows)
{
    float peak = 0.0F;
    for (std::size_t row = 0; row < rows.rowCount; ++row)
        for (std::size_t i = 0; i < rows.length; ++i)
            peak = std::max(peak, std::abs(rows.row(row)[i]));
    return peak;
}

} // namespace

ChunkProcessor::ChunkProcessor(std::shared_ptr<IInference> inference, std::size_t channels,
                               std::size_t fftSize, std::size_t hop, std::uint64_t configExtra,
                               std::size_t segmentFrames, std::size_t stemCount)
    : ChunkProcessor(std::move(inference), channels, fftSize, hop, configExtra, segmentFrames, stemCount,
                     RunGeometry::ordinary(segmentFrames, fftSize / hop))
{
}

ChunkProcessor::ChunkProcessor(std::shared_ptr<IInference> inference, std::size_t channels,
                               std::size_t fftSize, std::size_t hop, std::uint64_t configExtra,
                               std::size_t segmentFrames, std::size_t stemCount, RunGeometry geometry)
    : channels(channels), fftSize(fftSize), hop(hop), configExtra(configExtra), segmentFrames(segmentFrames),
      stemCount(stemCount), geometry(geometry), blend(stemCount * channels, fftSize, geometry.blend),
      resultBegin(0), resultEnd(0)
{
    const auto window = makeWindow(WindowType::Blackman, static_cast<std::int32_t>(fftSize));
    preProcessor = std::make_unique<PreProcessor>(channels, fftSize, hop, window, std::move(inference),
                                                  segmentFrames, true, stemCount, geometry.held());
    for (std::size_t stem = 0; stem < stemCount; ++stem)
        synthesizers.push_back(std::make_unique<OverlapAddSynthesizer>(channels, fftSize, hop, window));
    buffer = std::make_unique<BufferAggregator>(channels, 2 * longestLastChunk(), 1);
    chunk = FixedArray<2>::from_shape({channels, preProcessor->maxInputLength()});
    result = FixedArray<2>::from_shape({resultRows(), segmentFrames * hop});
}

void ChunkProcessor::reset()
{
    preProcessor->reset();
    for (const auto& synthesizer : synthesizers)
        synthesizer->reset();
    buffer->clear();
    blend.forget();
}

std::size_t ChunkProcessor::readyThreshold() const
{
    return (preProcessor->isFresh() ? geometry.firstHops(fftSize / hop) : geometry.step) * hop;
}

// From the beginning of the oldest frame that the last run held back, or else of the next one.
std::size_t ChunkProcessor::keptSamples() const
{
    return fftSize + geometry.held() * hop - hop;
}

std::size_t ChunkProcessor::push(const SampleBlock& input, bool eof)
{
    TONWERK_LOG_AS(processName, debug) << "ChunkProcessor::process input shape: " << input.channels << "x"
                                       << input.samples << ", eof: " << eof;
    buffer->push(input);
    const std::size_t held = buffer->heldSamples();
    if (eof)
    {
        TONWERK_LOG_AS(processName, debug) << "Processing EOF";
        return held;
    }
    if (held < readyThreshold())
    {
        TONWERK_LOG_AS(processName, debug) << "Not enough data to process, returning empty";
        return 0;
    }
    const std::size_t taken = std::min(held, longestChunk());
    return taken - taken % hop - keptSamples();
}

// At the end the buffer can hold more than the padded last chunk may carry, so ordinary chunks come first.
// They are cut to whole hops, which loses no sample: what does not fit stays for the next one.
SampleRows ChunkProcessor::process(bool eof, std::span<const bool> silentStems)
{
    reserveResult(eof);
    resultBegin = resultEnd = 0;
    while (eof && buffer->heldSamples() > longestLastChunk())
    {
        const std::size_t samples = std::min(buffer->heldSamples(), longestChunk());
        processChunk(samples - samples % hop, false, silentStems);
    }
    processChunk(std::min(buffer->heldSamples(), eof ? longestLastChunk() : longestChunk()), eof,
                 silentStems);
    return {resultRow(0) + resultBegin, resultRows(), resultEnd - resultBegin, result.shape(1)};
}

// One chunk always finds room. What several complete is as long as what is held, with the lead-in and the
// first hop of the lead-out, before both are cut.
void ChunkProcessor::reserveResult(bool eof)
{
    const std::size_t held = buffer->heldSamples();
    const std::size_t length = fftSize + held + endPadding(held) + hop;
    if (eof && held > longestLastChunk() && length > result.shape(1))
        result = FixedArray<2>::from_shape({resultRows(), length});
}

// The first chunk leaves room for the lead-in.
std::size_t ChunkProcessor::longestChunk() const
{
    return preProcessor->maxInputLength() - (preProcessor->isFresh() ? fftSize : 0);
}

// Later chunks need no lead-in and drop what the previous chunk has analysed already.
std::size_t ChunkProcessor::longestLastChunk() const
{
    return preProcessor->isFresh() ? preProcessor->maxInputLength() - 2 * fftSize
                                   : preProcessor->maxInputLength() - fftSize + hop;
}

/// The samples that are missing to a whole hop.
std::size_t ChunkProcessor::endPadding(std::size_t samples) const
{
    return (hop - samples % hop) % hop;
}

void ChunkProcessor::processChunk(std::size_t samples, bool last, std::span<const bool> silentStems)
{
    const bool first = preProcessor->isFresh();
    const std::size_t endPad = last ? endPadding(samples) : 0;
    const std::size_t leadOut = last ? fftSize + endPad : 0;
    const std::size_t leadIn = first ? std::min(samples + leadOut - 1, fftSize) : 0;
    // The frames that start with a later chunk's first hops were analysed with the previous chunk and held
    // back, so these hops are dropped here and the frames come back at the head of this chunk's frames.
    const std::size_t analysed = first ? 0 : geometry.held() * hop;

    preProcessor->prepare();
    const SampleRows padded = takeChunk(samples, leadIn, leadOut);
    TONWERK_LOG_AS(processName, debug)
        << "Data prepared for preprocessing, shape: " << channels << "x" << padded.length;
    blend.begin();
    const StemSpectra spectra = preProcessor->process(
        {padded.first + analysed, padded.rowCount, padded.length - analysed, padded.stride}, last);
    TONWERK_LOG_AS(processName, debug) << "Preprocessed data shape: " << spectra.shapeText();

    // Nothing from here on can fail: no answer of the model is lost or out of place.
    const std::size_t begin = resultEnd;
    synthesize(spectra, padded, silentStems);
    if (!last)
        blend.keep(spectra, stemCount);
    if (first)
        resultBegin = std::min(leadIn, resultEnd);
    if (last)
        cutLeadOut(spectra.frameCount() == 0, endPad);
    TONWERK_LOG_AS(processName, debug) << "ChunkProcessor::process result shape: " << stemCount + 1 << "x"
                                       << channels << "x" << resultEnd - std::max(begin, resultBegin);
}

/// Moves the oldest samples from the buffer to `chunk` and pads them; all but the last chunk leave the newest
/// frame's samples behind.
SampleRows ChunkProcessor::takeChunk(std::size_t samples, std::size_t leadIn, std::size_t leadOut)
{
    const SampleRows padded{chunk.data(), channels, leadIn + samples + leadOut, chunk.shape(1)};
    float* first = chunk.data() + leadIn;
    buffer->take(samples, leadOut == 0 ? keptSamples() : 0, first, padded.stride);
    for (std::size_t channel = 0; channel < channels; ++channel, first += padded.stride)
        mirrorAround(first, first + samples, leadIn, leadOut);
    if (leadIn == 0)
        return padded;
    const float peak = peakMagnitude(padded);
    if (peak > loudPeak)
    {
        TONWERK_LOG_AS(processName, info) << "MAX2: " << peak;
    }
    return padded;
}

/// Appends to the result what the frames complete: none if the model reported failure.
void ChunkProcessor::synthesize(const StemSpectra& spectra, const SampleRows& mixture,
                                std::span<const bool> silentStems)
{
    // Stem by stem: the sums of one stem fit into the processor's cache, those of all do not.
    for (std::size_t stem = 0; stem < stemCount; ++stem)
        synthesizeStem(spectra, stem, stem < silentStems.size() && silentStems[stem]);
    const std::size_t length = spectra.frameCount() * hop;
    for (std::size_t channel = 0; channel < channels; ++channel)
        std::copy_n(mixture.row(channel), length, resultRow(stemCount * channels + channel) + resultEnd);
    resultEnd += length;
}

void ChunkProcessor::synthesizeStem(const StemSpectra& spectra, std::size_t stem, bool silent)
{
    OverlapAddSynthesizer& synthesizer = *synthesizers[stem];
    float* target = resultRow(stem * channels) + resultEnd;
    for (std::size_t frame = 0; frame < spectra.frameCount(); ++frame, target += hop)
    {
        if (silent)
        {
            synthesizer.completeSilentHop(target, result.shape(1));
            continue;
        }
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            spectra.packFrame(stem, channel, frame, synthesizer.inputRow());
            blend.fadeInto(stem * channels + channel, frame, synthesizer.inputRow());
            synthesizer.addRow(channel);
        }
        synthesizer.completeHop(target, result.shape(1));
    }
}

/// Ends the result with the stream. Of the lead-out it holds the padding to a whole hop and one hop more. If
/// the model failed it holds none of it; then the length is negative, and counts from the end of the samples
/// that further frames would have completed: what is left of them is silence.
void ChunkProcessor::cutLeadOut(bool failed, std::size_t endPad)
{
    if (!failed)
    {
        resultEnd -= hop + endPad;
        return;
    }
    const std::size_t silence = fftSize - std::min(fftSize, 2 * hop + endPad);
    for (std::size_t row = 0; row < resultRows(); ++row)
        std::fill_n(resultRow(row) + resultEnd, silence, 0.0F);
    resultEnd += silence;
}
