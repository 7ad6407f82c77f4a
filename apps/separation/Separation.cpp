// SPDX-License-Identifier: MIT
#include "separation/Separation.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <utility>

#include "system/Failure.h"
#include "system/Interrupts.h"
#include "system/Text.h"

namespace tonwerk::app
{

Separation::Separation(std::shared_ptr<Model> model, SongSource& song, SeparationSettings settings,
                       StemSink& sink, std::vector<SeparationObserver*> observers)
    : model(std::move(model)),
      stream(this->model, stemsToAsk(settings.tracks), settings.quality, song.sampleRate()), source(song),
      sink(sink), observers(std::move(observers)), mixer(settings.tracks, song.channels())
{
}

SeparationResult Separation::run(const Progress& progress)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    bool atEnd = false;
    while (!atEnd)
    {
        if (interruptRequested())
            throw Interrupted();
        atEnd = processBlock();
        progress(atEnd ? 1.0 : source.fractionRead(), seconds(source.framesRead()));
    }
    checkLength();
    if (interruptRequested())
        throw Interrupted();
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    // The library got a mono song on both channels.
    const std::uint64_t nonFinite = stream.nonFiniteSamples() * source.channels() / 2;
    return {framesReturned, seconds(framesReturned), elapsed, stream.nullPeak(),
            nonFinite,      std::move(logged)};
}

bool Separation::processBlock()
{
    // One run of the model per block, so that the progress shows the speed.
    const std::size_t frames = stream.framesUntilResult();
    source.read(frames, block);
    const bool atEnd = block.size() < 2 * frames;
    for (SeparationObserver* observer : observers)
        observer->observeSong(block);
    take(stream.feed(block));
    if (atEnd)
        take(stream.finish());
    return atEnd;
}

void Separation::take(const StemStream::Stems& stems)
{
    checkLibrary();
    if (stems.empty() || stems.front().empty())
        return;
    checkFinite(stems);
    const auto& tracks = mixer.mix(stems);
    for (SeparationObserver* observer : observers)
    {
        observer->observeStems(stems);
        observer->observeTracks(tracks);
    }
    sink.write(tracks);
    framesReturned += stems.front().size() / 2;
}

void Separation::checkLibrary()
{
    std::string lastError;
    for (LibraryLog::Line& line : model->log().take())
    {
        if (line.isError)
            lastError = line.text;
        logged.push_back(std::move(line.text));
    }
    if (stream.failedRuns() > 0)
        throw Failure("The model failed at " + asClock(seconds(framesReturned)) +
                      " or soon after: " + lastError + ".");
}

// The library gives the model finite numbers whatever the song holds.
void Separation::checkFinite(const StemStream::Stems& stems) const
{
    std::string names;
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        if (!std::all_of(stems[stem].begin(), stems[stem].end(),
                         [](float sample) { return std::isfinite(sample); }))
            names.append(names.empty() ? "" : ", ").append(stemNames.at(stem));
    if (!names.empty())
        throw Failure("The model failed at " + asClock(seconds(framesReturned)) +
                      " or soon after: it answered with values that are not finite numbers for " + names +
                      ".");
}

void Separation::checkLength() const
{
    if (framesReturned != source.framesRead())
        throw Failure("The library returned " + std::to_string(framesReturned) +
                      " samples per channel for the " + std::to_string(source.framesRead()) +
                      " that it was given.");
}

double Separation::seconds(std::uint64_t frames) const
{
    return static_cast<double>(frames) / static_cast<double>(source.sampleRate());
}

} // namespace tonwerk::app
