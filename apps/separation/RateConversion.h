// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_RATECONVERSION_H
#define TONWERK_APPS_SEPARATION_RATECONVERSION_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "separation/Resampler.h"
#include "separation/Stems.h"

namespace tonwerk::app
{

/// Adapts a song to a model of another sample rate: converts the song to the model's rate and the stems back
/// to the song's, without a shift. It computes the residual itself, as the song minus its stems, so that the
/// residual keeps the frequencies that the model's rate cannot represent.
class RateConversion
{
public:
    /// In the order of stemNames, interleaved.
    using Stems = std::vector<std::vector<float>>;

    /// \param asked the stems that the model returns; the others are silent
    RateConversion(unsigned songRate, unsigned modelRate, const StemSet& asked);

    /// Takes the next interleaved stereo samples of the song. The model gets zeros for those that are not
    /// finite; the residual keeps them.
    /// \param atModelRate replaced by the model's next input
    void toModel(std::span<const float> song, std::vector<float>& atModelRate);

    /// Ends the song.
    /// \param atModelRate replaced by the model's last input
    void endSong(std::vector<float>& atModelRate);

    /// Takes the next stems of the model.
    /// \return eight stems at the song's rate, which may be empty
    Stems fromModel(const Stems& atModelRate);

    /// Call it once, after the model's last stems.
    /// \return the rest; the stems are now as long as the song
    Stems finish();

    /// Samples of the song that were not finite.
    std::uint64_t nonFiniteSamples() const { return replaced; }

private:
    Stems complete(Stems stems);

    unsigned rate;
    unsigned modelsRate;
    Resampler toModelsRate;
    std::array<std::optional<Resampler>, modelStemCount> toSongsRate;
    std::vector<float> pending; ///< the part of the song whose stems are not back
    std::vector<float> finite;
    std::uint64_t songFrames = 0;
    std::uint64_t replaced = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_RATECONVERSION_H
