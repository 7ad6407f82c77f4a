// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_STEMSTREAM_H
#define TONWERK_APPS_SEPARATION_STEMSTREAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "separation/Model.h"
#include "separation/NullMeter.h"
#include "separation/Quality.h"
#include "separation/RateConversion.h"
#include "separation/Stems.h"
#include "system/Interrupts.h"

namespace tonwerk::app
{

/// Feeds one song to the library at the song's own sample rate. One thread at a time.
class StemStream
{
public:
    /// Eight, in the order of stemNames, of equal length: interleaved stereo.
    using Stems = std::vector<std::vector<float>>;

    /// \param asked the stems to ask of the model; the others are silent, and their sound is in the residual
    /// \throws Failure if the library refuses
    StemStream(std::shared_ptr<Model> model, const StemSet& asked, const Quality& quality,
               unsigned sampleRate);

    /// About how many frames of the song to feed until the model runs next.
    std::size_t framesUntilResult() const;

    /// Takes the next interleaved stereo samples.
    /// \return what they complete, perhaps nothing
    /// \throws Interrupted once the user asked to stop
    /// \throws Failure if the library fails. A run of the model that fails is no such failure: failedRuns()
    Stems feed(const std::vector<float>& song);

    /// Ends the song.
    /// \return the rest of the stems, which now are as long as the song
    /// \throws Failure as feed()
    Stems finish();

    /// Runs of the model that have failed: the stems have silence there.
    std::uint64_t failedRuns() const;

    /// Largest absolute value of six stems + residual - input, measured at the library.
    double nullPeak() const { return nullMeter.peak(); }

    /// Samples of the song, on both channels, that were NaN or infinite.
    std::uint64_t nonFiniteSamples() const;

private:
    struct Destroy
    {
        void operator()(tonwerk_stream* stream) const { tonwerk_stream_destroy(stream); }
    };

    Stems feedModel(const std::vector<float>& input);
    Stems finishModel();
    Stems readModel();

    std::shared_ptr<Model> model;
    std::unique_ptr<tonwerk_stream, Destroy> stream;
    OnInterrupt cancelling; ///< a run of the model takes seconds, and one of a hostile model has no end
    unsigned rate;
    std::optional<RateConversion> conversion; ///< none at the model's rate
    NullMeter nullMeter;
    std::vector<float> atModelRate;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_STEMSTREAM_H
