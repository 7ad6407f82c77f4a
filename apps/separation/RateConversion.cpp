// SPDX-License-Identifier: MIT
#include "separation/RateConversion.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tonwerk::app
{

RateConversion::RateConversion(unsigned songRate, unsigned modelRate, const StemSet& asked)
    : rate(songRate), modelsRate(modelRate), toModelsRate(songRate, modelRate)
{
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        if (asked.test(stem))
            toSongsRate[stem].emplace(modelRate, songRate);
}

void RateConversion::toModel(std::span<const float> song, std::vector<float>& atModelRate)
{
    pending.insert(pending.end(), song.begin(), song.end());
    songFrames += song.size() / 2;
    finite.assign(song.begin(), song.end());
    for (float& sample : finite)
    {
        if (std::isfinite(sample))
            continue;
        sample = 0.0F;
        ++replaced;
    }
    atModelRate.clear();
    toModelsRate.feed(finite, atModelRate);
}

void RateConversion::endSong(std::vector<float>& atModelRate)
{
    atModelRate.clear();
    toModelsRate.finish((songFrames * modelsRate + rate - 1) / rate, atModelRate);
}

RateConversion::Stems RateConversion::fromModel(const Stems& atModelRate)
{
    Stems stems(stemNames.size());
    if (!atModelRate.empty())
        for (std::size_t stem = 0; stem < modelStemCount; ++stem)
            if (toSongsRate[stem])
                toSongsRate[stem]->feed(atModelRate[stem], stems[stem]);
    return complete(std::move(stems));
}

RateConversion::Stems RateConversion::finish()
{
    Stems stems(stemNames.size());
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        if (toSongsRate[stem])
            toSongsRate[stem]->finish(songFrames, stems[stem]);
    return complete(std::move(stems));
}

/// Inserts silence for the stems that were not asked for, the residual and the mix.
RateConversion::Stems RateConversion::complete(Stems stems)
{
    std::size_t samples = 0;
    for (const auto& stem : stems)
        samples = std::max(samples, stem.size());
    for (auto& stem : stems)
        stem.resize(samples, 0.0F);
    auto& residual = stems[modelStemCount];
    auto& mix = stems[modelStemCount + 1];
    for (std::size_t sample = 0; sample < samples; ++sample)
    {
        double sum = 0.0;
        for (std::size_t stem = 0; stem < modelStemCount; ++stem)
            sum += static_cast<double>(stems[stem][sample]);
        mix[sample] = static_cast<float>(sum);
        residual[sample] = static_cast<float>(static_cast<double>(pending[sample]) - sum);
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(samples));
    return stems;
}

} // namespace tonwerk::app
