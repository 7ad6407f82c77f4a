#ifndef TONWERK_PIPELINE_CHUNKPROCESSOR_H
#define TONWERK_PIPELINE_CHUNKPROCESSOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
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

    /// Samples per channel that must be held before a chunk is taken.
    std::size_t readyThreshold() const;

private:
    /// A chunk about to be processed, with the padding that has to be cut from its result.
    struct Chunk
    {
        Array data;
        std::size_t endPad;
        bool eof;
    };

    const Array& drain();
    Chunk takeChunk(std::size_t samples);
    Chunk takeLastChunk();
    std::size_t longestChunk() const;
    std::size_t longestLastChunk() const;
    std::size_t padFront(Array& data);
    const Array& processChunk(Chunk chunk);
    StemSpectra analyse(const Chunk& chunk);
    void synthesize(const StemSpectra& spectra, const Array& mixture);
    void trimResult(std::size_t frontPad, const Chunk& chunk);

    std::size_t channels;
    std::size_t fftSize;
    std::size_t hop;
    [[maybe_unused]] std::uint64_t configExtra;
    [[maybe_unused]] std::size_t segmentFrames;
    std::size_t stemCount;
    std::unique_ptr<PreProcessor> preProcessor;
    std::vector<std::unique_ptr<OverlapAddSynthesizer>> synthesizers;
    std::unique_ptr<BufferAggregator> buffer;
    bool firstChunk;
    bool firstResult;
    Array result;        ///< kept, so that a steady stream needs no new memory for it
    const Array nothing; ///< the result of calls that complete no chunk
};

#endif // TONWERK_PIPELINE_CHUNKPROCESSOR_H
