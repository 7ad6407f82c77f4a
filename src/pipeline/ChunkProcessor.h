// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_CHUNKPROCESSOR_H
#define TONWERK_PIPELINE_CHUNKPROCESSOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "common/Arrays.h"
#include "inference/IInference.h"
#include "pipeline/BufferAggregator.h"
#include "pipeline/OverlapAddSynthesizer.h"
#include "spectral/PreProcessor.h"

/// Cuts a stream into overlapping, model-sized chunks and reassembles the stems.
///
/// Consecutive chunks share their newest and oldest fftSize samples. The first chunk is led in by its own
/// mirror image and the last one is led out likewise, so that every sample of the stream lies under the full
/// number of windows; both are cut from the results. One instance serves one stream, from one thread at a
/// time.
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
    ChunkProcessor(std::shared_ptr<IInference> inference, std::size_t channels, std::size_t fftSize,
                   std::size_t hop, std::uint64_t configExtra, std::size_t segmentFrames,
                   std::size_t stemCount);

    /// Feeds a block {channels, n} and returns what it completes as {stemCount + 1, channels, m}: the stems
    /// in the model's output order, then the mixture aligned with them. An array without dimensions stands
    /// for nothing yet and, at `eof`, for nothing left. At `eof` everything held is processed, in as many
    /// model runs as it takes. The result stays valid until the next call. \throws std::runtime_error "Buffer
    /// overflow: cannot accept chunk of size n"; the stream is unchanged then
    const Array& process(const Array& input, bool eof);

    /// The same for a block that lies in the host's memory, which saves a copy of it.
    const Array& process(const SampleBlock& input, bool eof);

    /// From now on the model's outputs for these stems, one flag for each in output order, are known to be
    /// zero, so that nothing is computed for them but how they fade out.
    void setSilentStems(std::span<const bool> silent);

    /// Samples per channel that must be held before a chunk is taken.
    std::size_t readyThreshold() const;

private:
    const Array& processHeld(bool eof);
    const Array& drain();
    /// Moves the oldest samples from the buffer to `chunk`.
    void takeChunk(std::size_t samples);
    /// Moves all samples to `chunk` and pads them. \return the samples that were missing to a whole hop
    std::size_t takeLastChunk();
    std::size_t longestChunk() const;
    std::size_t longestLastChunk() const;
    /// Pads `chunk`, which is the stream's first. \return the samples that were put before it
    std::size_t padFront();
    const Array& processChunk(std::size_t endPad, bool eof);
    StemSpectra analyse(bool eof);
    void synthesize(const StemSpectra& spectra);
    void synthesizeStem(const StemSpectra& spectra, std::size_t stem, float* target, std::size_t length);
    void trimResult(std::size_t frontPad, std::size_t endPad, bool eof);

    std::size_t channels;
    std::size_t fftSize;
    std::size_t hop;
    [[maybe_unused]] std::uint64_t configExtra;
    [[maybe_unused]] std::size_t segmentFrames;
    std::size_t stemCount;
    std::unique_ptr<PreProcessor> preProcessor;
    std::vector<std::unique_ptr<OverlapAddSynthesizer>> synthesizers;
    std::unique_ptr<BufferAggregator> buffer;
    std::vector<bool> silentStems;
    bool firstChunk;
    bool firstResult;
    Array chunk;  ///< what is being processed; kept, as is the result, so that a steady stream needs no
    Array result; ///< new memory for them
    const Array nothing; ///< the result of calls that complete no chunk
};

#endif // TONWERK_PIPELINE_CHUNKPROCESSOR_H
