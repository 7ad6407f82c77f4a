// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_PCMENCODER_H
#define TONWERK_APPS_AUDIO_PCMENCODER_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string_view>
#include <vector>

namespace tonwerk::app
{

/// How the samples of a file are stored.
enum class SampleFormat
{
    Float32,
    Pcm24,
    Pcm16
};

/// As on the command line: "float32", "pcm24", "pcm16".
std::string_view nameOf(SampleFormat format);

/// The factor for samples up to `peak` with which none of them clips: 1 if they fit as they are, as they
/// always do in Float32.
double gainToFit(double peak, SampleFormat format);

/// Makes fixed-point samples. Samples of 16 bits get dither with a triangular distribution of 2 LSB from end
/// to end (TPDF), which turns the error of rounding into noise that does not depend on the music (Lipshitz,
/// Wannamaker and Vanderkooy 1992); exact zeros stay zeros. The noise is the same in every run.
class PcmEncoder
{
public:
    /// \param format Pcm16 or Pcm24
    /// \param gain factor for all samples
    PcmEncoder(SampleFormat format, double gain);

    /// What is not finite becomes zero; what is beyond full scale clips.
    /// \return the samples in the uppermost bits of each number, valid until the next call
    std::span<const std::int32_t> encode(std::span<const float> samples);

private:
    double dither();

    unsigned bits;
    double factor;
    std::minstd_rand noise{1};
    std::vector<std::int32_t> encoded;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_PCMENCODER_H
