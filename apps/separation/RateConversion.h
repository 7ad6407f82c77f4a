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

/// Lets a song of any sample rate pass through a model of another: the song goes in at the model's rate, and
/// the stems come back at the song's, each sample where it belongs. The residual is made here, as the song
/// less its stems, so that it also holds what the model's rate has no place for.
class RateConversion
{
public:
    /// As TonwerkProc::process returns them, interleaved.
    using Stems = std::vector<std::vector<float>>;

    /// \param asked the stems that the model returns; the others are silent
    RateConversion(unsigned songRate, unsigned modelRate, const StemSet& asked);

    /// Takes the next interleaved stereo samples of the song. Those that are not finite count as silence for
    /// the model, and make the residual what they are.
    /// \param atModelRate replaced by what the model gets next
    void toModel(std::span<const float> song, std::vector<float>& atModelRate);

    /// Ends the song.
    /// \param atModelRate replaced by the last that the model gets
    void endSong(std::vector<float>& atModelRate);

    /// Takes the next stems of the model.
    /// \return eight stems at the song's rate, which may be empty
    Stems fromModel(const Stems& atModelRate);

    /// \return the rest, after all stems of the model have been taken: now the stems are as long as the song
    Stems finish();

    /// Samples of the song that were not finite.
    std::uint64_t nonFiniteSamples() const { return replaced; }

private:
    Stems complete(Stems stems);

    unsigned rate;
    unsigned modelsRate;
    Resampler toModelsRate;
    std::array<std::optional<Resampler>, modelStemCount> toSongsRate;
    std::vector<float> pending; ///< the song as far as its stems are not back
    std::vector<float> finite;
    std::uint64_t songFrames = 0;
    std::uint64_t replaced = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_RATECONVERSION_H
