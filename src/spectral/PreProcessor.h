// SPDX-License-Identifier: MIT
#ifndef TONWERK_SPECTRAL_PREPROCESSOR_H
#define TONWERK_SPECTRAL_PREPROCESSOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/Arrays.h"
#include "common/SampleRows.h"
#include "inference/IInference.h"
#include "spectral/PFFFTTransformer.h"
#include "spectral/StemSpectra.h"

/// From a chunk of audio to the spectra of its stems.
///
/// Keeps the spectrogram of the last `frameCount` frames across calls, so that the model always sees a full
/// segment while each call adds only the frames that its samples complete. One instance serves one stream at
/// a time.
class PreProcessor
{
public:
    /// \param channelCount   audio channels
    /// \param fftSize        frame length N; the model gets N/2 bins, without Nyquist
    /// \param hopSize        distance between frames, not 0
    /// \param window         analysis window of N samples
    /// \param inference      the model
    /// \param frameCount     T, frames per model segment
    /// \param keepEdgeFrames hold every call's newest frames back until more is known to their right, and
    ///                       return them with the next call
    /// \param outputCount    S, model outputs
    /// \param heldFrames     how many are held back; fewer than T
    PreProcessor(std::size_t channelCount, std::size_t fftSize, std::size_t hopSize,
                 const std::vector<float>& window, std::shared_ptr<IInference> inference,
                 std::size_t frameCount, bool keepEdgeFrames, std::size_t outputCount,
                 std::size_t heldFrames = 1);

    /// Makes what the next call of process() needs, so that nothing but the model can fail in it.
    /// \throws std::bad_alloc
    void prepare();

    /// Frames and transforms a chunk, one row for each channel, runs the model once, and returns the spectra
    /// of the frames that are complete: as many as are new, less those held back on the first call, and more
    /// by those held back at `eof`. A chunk should carry at least N and at most
    /// maxInputLength() samples, and none that an earlier chunk's frames began with. The first (length - N)
    /// modulo hop samples fall into no frame.
    ///
    /// A frame with samples that are not finite enters the spectrogram as silence.
    /// \return the spectra, valid until the next call; no frames if the model reports failure
    /// \throws std::exception whatever the model throws; the frames are in the spectrogram then
    StemSpectra process(const SampleRows& input, bool eof);

    /// Forgets the stream.
    /// \throws nothing
    void reset();

    /// True until a run of the model has succeeded. (Only where edge frames are kept: otherwise always.)
    bool isFresh() const { return firstCall; }

    /// The longest chunk whose frames fit into the segment beside those held at its edges.
    std::size_t maxInputLength() const;

private:
    void shiftSpectrogram(std::size_t newFrames);
    void transformFrames(const SampleRows& input);
    void transformFrame(const float* samples, std::size_t channel, std::size_t slot);
    bool runModel();
    StemSpectra completedFrames(std::size_t newFrames, bool eof);

    std::size_t channelCount;
    std::size_t fftSize;
    std::size_t hopSize;
    std::size_t outputCount;
    FixedArray<1> window;
    std::shared_ptr<IInference> inference;
    PFFFTTransformer fft;
    std::size_t frameCount;
    bool keepEdgeFrames;
    std::size_t heldFrames;
    std::size_t edgeFrames;
    FixedArray<3> spectrogram;
    bool firstCall;
    std::vector<FixedArray<3>> modelOutputs;
    std::vector<float*> nextOutputs; ///< where the next run writes, if that is prepared
};

#endif // TONWERK_SPECTRAL_PREPROCESSOR_H
