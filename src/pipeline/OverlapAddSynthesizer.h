// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_OVERLAPADDSYNTHESIZER_H
#define TONWERK_PIPELINE_OVERLAPADDSYNTHESIZER_H

#include <cstddef>
#include <vector>

#include "common/Arrays.h"
#include "spectral/PFFFTTransformer.h"

/// Turns one stem's stream of packed spectra back into continuous audio.
///
/// Least-squares overlap-add (Griffin & Lim 1984, "Signal estimation from modified short-time Fourier
/// transform", equation 6): each output sample is the sum of window times frame over all frames that cover
/// it, divided by the sum of the squared window over the same frames. The sums are kept incrementally and
/// every hop is emitted as soon as no later frame can add to it, so the state lives as long as the stream and
/// is never reset.
///
/// The divisor has no floor: in the first frame of a stream, where few frames cover a sample, the quotient
/// may be huge. The ChunkProcessor begins every stream with a lead-in of a frame's length, whose samples it
/// discards.
class OverlapAddSynthesizer : public PFFFTTransformer
{
public:
    /// \param fftSize frame length N
    /// \param hop     samples per frame
    /// \param window  synthesis window of N samples
    OverlapAddSynthesizer(std::size_t channels, std::size_t fftSize, std::size_t hop,
                          const std::vector<float>& window);

    /// Adds one frame of packed spectra {channels, N} and returns the {channels, hop} samples that it
    /// completes; or adds k frames {channels, N, k} in turn and returns their samples in a row as {2, k *
    /// hop} ({2, 0} for k = 0).
    Array process(const Array& frame);

    /// The same for one frame without arrays. For each channel the caller writes the packed spectrum into
    /// inputRow() and calls addRow; completeHop then writes min(hop, N) samples of channel c to `first` + c *
    /// `stride`.
    void addRow(std::size_t channel);
    void completeHop(float* first, std::size_t stride);

    /// Completes a hop of a frame whose spectra are all zero, as if such rows had been added. Once nothing of
    /// former frames is left, that is only a matter of writing zeros.
    void completeSilentHop(float* first, std::size_t stride);

    /// Forgets the stream.
    void reset();

    /// The {channels, N - hop} samples that further frames would still add to, normalised so far. Changes
    /// nothing.
    Array tail() const;

private:
    Array processFrame(const Array& frame);
    Array processFrames(const Array& frames);
    void normalise(std::size_t count, float* first, std::size_t stride) const;

    std::size_t fftSize;
    std::size_t hop;
    FixedArray<1> scaledWindow; ///< the window over N, which is the scale of the inverse transform
    FixedArray<1> windowSquared;
    FixedArray<2> accumulator;
    FixedArray<1> windowSum;
    std::size_t silentHops; ///< since the last frame with sound
};

#endif // TONWERK_PIPELINE_OVERLAPADDSYNTHESIZER_H
