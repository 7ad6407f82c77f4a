// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_RUNGEOMETRY_H
#define TONWERK_PIPELINE_RUNGEOMETRY_H

#include <cstddef>
#include <string>

/// How often the model runs and which of its frames a stream uses. All numbers are frames of the transform,
/// one every hop.
///
/// Of every run, the newest `lookahead` frames are not used: the next run sees more of what follows them. The
/// `blend` frames before these are faded, spectrum by spectrum, into what the next run says of them. So a
/// frame comes out when lookahead + blend frames at the most are known to its right, and one run pays for
/// `step` frames.
struct RunGeometry
{
    std::size_t step;      ///< new frames per run
    std::size_t lookahead; ///< newest frames of a run that wait for the next one
    std::size_t blend;     ///< frames over which a run is faded into the next one

    /// Frames that a run knows and does not give out.
    std::size_t held() const { return lookahead + blend; }

    /// That of TonwerkProc: the fewest runs, each frame with one neighbour to its right.
    /// \param segmentFrames frames that the model sees at once
    /// \param overlap       frames that cover a sample: frame length over hop
    static RunGeometry ordinary(std::size_t segmentFrames, std::size_t overlap)
    {
        return {segmentFrames - 3 - overlap, 1, 0};
    }

    /// Hops that must be gathered for the stream's first run: then the lead-in is complete, as is its mirror
    /// image, and the run completes whole frames behind it.
    std::size_t firstHops(std::size_t overlap) const;

    /// The most samples that are ever fed and not returned, whatever the blocks.
    std::size_t latency(std::size_t overlap, std::size_t hop) const;

    /// Empty if the model's segment has room for all frames that a run must know, otherwise a sentence.
    std::string fault(std::size_t segmentFrames) const;
};

#endif // TONWERK_PIPELINE_RUNGEOMETRY_H
