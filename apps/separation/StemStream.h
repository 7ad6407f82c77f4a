// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_STEMSTREAM_H
#define TONWERK_APPS_SEPARATION_STEMSTREAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <tonwerk/StreamFeeder.h>
#include <tonwerk/TonwerkProc.h>

#include "separation/NullMeter.h"
#include "separation/RateConversion.h"
#include "separation/Stems.h"

namespace tonwerk::app
{

/// Feeds one song to the library at the song's own sample rate.
class StemStream
{
public:
    using Stems = StreamFeeder::Stems;

    /// The sample rate of the models.
    static constexpr unsigned modelRate = 44100;

    /// \param asked the stems to ask of the model; the others are silent, and their sound is in the residual
    /// \throws std::exception as the library does
    StemStream(std::shared_ptr<InferenceContext> model, const StemSet& asked, unsigned sampleRate);

    /// About how many frames of the song to feed until the model runs next.
    std::size_t framesUntilResult() const;

    /// Takes the next interleaved stereo samples.
    /// \return no stems, or eight of equal length
    /// \throws std::exception as the library does
    Stems feed(const std::vector<float>& song);

    /// Ends the song.
    /// \return the rest of the stems, which now are as long as the song
    /// \throws std::exception as the library does
    Stems finish();

    /// Largest absolute value of six stems + residual - input, measured at the library.
    double nullPeak() const { return nullMeter.peak(); }

    /// Samples of the song, on both channels, that were NaN or infinite.
    std::uint64_t nonFiniteSamples() const;

private:
    Stems checked(Stems stems);

    StreamFeeder feeder;
    unsigned rate;
    std::optional<RateConversion> conversion; ///< none at the model's rate
    NullMeter nullMeter;
    std::vector<float> atModelRate;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_STEMSTREAM_H
