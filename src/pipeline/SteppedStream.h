// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_STEPPEDSTREAM_H
#define TONWERK_PIPELINE_STEPPEDSTREAM_H

#include <cstddef>
#include <memory>
#include <span>

#include "common/Arrays.h"
#include "common/SampleRows.h"
#include "inference/IInference.h"
#include "pipeline/ChunkProcessor.h"
#include "pipeline/RunGeometry.h"

/// A stereo stream in blocks of any size, of which every run of the model gets exactly one step: results are
/// the same, bit for bit, however the stream is cut. One thread at a time.
///
/// A result has a row for each channel of each stem, in the model's output order, and of the mixture aligned
/// with them. It is valid until the next call.
class SteppedStream
{
public:
    /// \param geometry how often the model runs
    /// \throws std::invalid_argument with a sentence if the model's segment has no room for it
    SteppedStream(std::shared_ptr<IInference> inference, RunGeometry geometry);

    /// Feeds a stereo block of at most samplesUntilResult() samples per channel.
    /// \param silentStems as ChunkProcessor::process takes them
    /// \return what it completes; no samples if nothing
    /// \throws std::exception as ChunkProcessor::process; the block is taken then
    SampleRows feed(const SampleBlock& block, std::span<const bool> silentStems = {});

    /// Ends the stream, so that as much has come back as went in. A reset must follow before the next block.
    /// \return all that is left; no samples if nothing was ever fed
    /// \throws std::exception as ChunkProcessor::process
    SampleRows finish(std::span<const bool> silentStems = {});

    /// Begins a new stream. What was fed and not returned is forgotten. Allocates nothing.
    void reset();

    /// Samples per channel to feed until the model runs next; at least 1.
    std::size_t samplesUntilResult() const { return blockLength() - gathered; }

    /// The most samples per channel that are ever fed and not returned.
    std::size_t latency() const;

private:
    std::size_t blockLength() const { return engine.readyThreshold(); }
    SampleRows pass(bool eof, std::span<const bool> silentStems);

    RunGeometry geometry;
    ChunkProcessor engine;
    FixedArray<2> block;      ///< what is gathered for the next run: a row for each channel
    std::size_t gathered = 0; ///< samples in each row
};

#endif // TONWERK_PIPELINE_STEPPEDSTREAM_H
