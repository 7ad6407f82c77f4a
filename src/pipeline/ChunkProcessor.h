// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_CHUNKPROCESSOR_H
#define TONWERK_PIPELINE_CHUNKPROCESSOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "common/Arrays.h"
#include "common/SampleRows.h"
#include "inference/IInference.h"
#include "pipeline/BufferAggregator.h"
#include "pipeline/OverlapAddSynthesizer.h"
#include "pipeline/RunBlend.h"
#include "pipeline/RunGeometry.h"
#include "spectral/PreProcessor.h"

/// Cuts a stream into overlapping, model-sized chunks and reassembles the stems.
///
/// Consecutive chunks share the samples of the frames that a run knows and does not give out. The first chunk
/// is led in by its own mirror image and the last one is led out likewise, so that every sample of the stream
/// lies under the full number of windows; both are cut from the results. One instance serves one stream, from
/// one thread at a time.
///
/// Every block takes two calls: push() only copies, process() computes. Between them the caller can make room
/// for the result, so that memory that runs out there costs the stream nothing.
class ChunkProcessor
{
public:
    /// \param inference     the model, shared with other streams
    /// \param channels      audio channels
    /// \param fftSize       frame length, a multiple of `hop`
    /// \param hop           distance between frames
    /// \param configExtra   kept, never read
    /// \param segmentFrames frames per model segment; long enough that a chunk exceeds two frame lengths
    /// \param stemCount     stems that the model produces
    /// \param geometry      how often the model runs; without a fault for these segments
    ChunkProcessor(std::shared_ptr<IInference> inference, std::size_t channels, std::size_t fftSize,
                   std::size_t hop, std::uint64_t configExtra, std::size_t segmentFrames,
                   std::size_t stemCount, RunGeometry geometry);

    /// The same with the ordinary geometry.
    ChunkProcessor(std::shared_ptr<IInference> inference, std::size_t channels, std::size_t fftSize,
                   std::size_t hop, std::uint64_t configExtra, std::size_t segmentFrames,
                   std::size_t stemCount);

    /// Takes a block.
    /// \return the samples per channel that process() will complete; 0: nothing yet or, at `eof`, nothing left
    /// \throws std::runtime_error "Buffer overflow: cannot accept chunk of size n"; nothing has changed then
    /// \throws std::exception (the array library's) if the block has another number of channels; nothing has
    ///         changed then
    std::size_t push(const SampleBlock& input, bool eof);

    /// Completes as much as one run of the model can or, at `eof`, all that is held, in as many runs as it
    /// takes. Only to be called if push() has announced something.
    /// \param silentStems one flag for each stem in output order: the model's output for it is known to be
    ///                    zero, so that nothing is computed but how it fades out; without flags no stem is
    /// \return stem by stem in the model's output order, and then of the mixture aligned with them, a row for
    ///         each channel: of the announced length, or less where the model reported failure. Valid until
    ///         the next call
    /// \throws std::bad_alloc before the model has run: nothing has changed
    /// \throws std::exception whatever the model throws: its chunk is lost and the stream goes on behind it,
    ///         from its beginning if no run has succeeded yet. At `eof` the chunks before it, which this call
    ///         had completed, are lost too
    SampleRows process(bool eof, std::span<const bool> silentStems = {});

    /// Forgets the stream: the next block begins a new one. Allocates nothing.
    void reset();

    /// Samples per channel that must be held before a chunk is taken.
    std::size_t readyThreshold() const;

private:
    void reserveResult(bool eof);
    std::size_t longestChunk() const;
    std::size_t longestLastChunk() const;
    std::size_t endPadding(std::size_t samples) const;
    void processChunk(std::size_t samples, bool last, std::span<const bool> silentStems);
    SampleRows takeChunk(std::size_t samples, std::size_t leadIn, std::size_t leadOut);
    void synthesize(const StemSpectra& spectra, const SampleRows& mixture, std::span<const bool> silentStems);
    void synthesizeStem(const StemSpectra& spectra, std::size_t stem, bool silent);
    std::size_t keptSamples() const;
    void cutLeadOut(bool failed, std::size_t endPad);
    std::size_t resultRows() const { return (stemCount + 1) * channels; }
    float* resultRow(std::size_t row) { return result.data() + row * result.shape(1); }

    std::size_t channels;
    std::size_t fftSize;
    std::size_t hop;
    [[maybe_unused]] std::uint64_t configExtra;
    [[maybe_unused]] std::size_t segmentFrames;
    std::size_t stemCount;
    RunGeometry geometry;
    RunBlend blend;
    std::unique_ptr<PreProcessor> preProcessor;
    std::vector<std::unique_ptr<OverlapAddSynthesizer>> synthesizers;
    std::unique_ptr<BufferAggregator> buffer;
    FixedArray<2> chunk;  ///< a row for each channel, with room for the longest padded chunk
    FixedArray<2> result; ///< a row for each channel of each stem and of the mixture, with room for a chunk
    std::size_t resultBegin; ///< where the result begins in each of its rows: behind the lead-in
    std::size_t resultEnd;   ///< and where it ends
};

#endif // TONWERK_PIPELINE_CHUNKPROCESSOR_H
