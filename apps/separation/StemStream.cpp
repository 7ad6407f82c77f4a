// SPDX-License-Identifier: MIT
#include "separation/StemStream.h"

#include <utility>

namespace tonwerk::app
{

namespace
{

void append(StemStream::Stems& stems, const StemStream::Stems& more)
{
    for (std::size_t stem = 0; stem < stems.size(); ++stem)
        stems[stem].insert(stems[stem].end(), more[stem].begin(), more[stem].end());
}

} // namespace

StemStream::StemStream(std::shared_ptr<InferenceContext> model, const StemSet& asked, unsigned sampleRate)
    : feeder(std::move(model), processorConfig(asked)), rate(sampleRate)
{
    if (rate != modelRate)
        conversion.emplace(rate, modelRate, asked);
}

std::size_t StemStream::framesUntilResult() const
{
    return (feeder.framesUntilResult() * rate + modelRate - 1) / modelRate;
}

StemStream::Stems StemStream::feed(const std::vector<float>& song)
{
    if (!conversion)
    {
        nullMeter.feed(song);
        return checked(feeder.feed(song));
    }
    conversion->toModel(song, atModelRate);
    nullMeter.feed(atModelRate);
    return conversion->fromModel(checked(feeder.feed(atModelRate)));
}

StemStream::Stems StemStream::finish()
{
    if (!conversion)
        return checked(feeder.finish());
    conversion->endSong(atModelRate);
    nullMeter.feed(atModelRate);
    Stems stems = conversion->fromModel(checked(feeder.feed(atModelRate)));
    append(stems, conversion->fromModel(checked(feeder.finish())));
    append(stems, conversion->finish());
    return stems;
}

StemStream::Stems StemStream::checked(Stems stems)
{
    if (!stems.empty())
        nullMeter.compare(stems);
    return stems;
}

std::uint64_t StemStream::nonFiniteSamples() const
{
    return conversion ? conversion->nonFiniteSamples() : nullMeter.nonFiniteSamples();
}

} // namespace tonwerk::app
